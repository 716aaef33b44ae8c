// A soak: one server answering explore calls back to back for SOAK_SECONDS while files of the
// repository are edited every EDIT_MS; per window of WINDOW_SECONDS it prints the calls answered,
// the throughput, p50/p99 latency, the server's resident memory and the machine's load average.
// Usage: node bench/serve/soak.mjs BINARY REPO
import { spawn } from 'node:child_process';
import { readdirSync, readFileSync, writeFileSync } from 'node:fs';
import { loadavg } from 'node:os';
import { join, relative } from 'node:path';
import { performance } from 'node:perf_hooks';

const [binary, repo] = process.argv.slice(2);
const SOAK_SECONDS = Number(process.env.SOAK_SECONDS ?? 600);
const WINDOW_SECONDS = Number(process.env.WINDOW_SECONDS ?? 60);
const EDIT_MS = Number(process.env.EDIT_MS ?? 2000);
const QUERIES = [
  'how does the ORM build a SQL query',
  'QuerySet.filter',
  'db/models/query.py',
  'tests for django/utils/text.py',
  'where are CSRF tokens checked',
  'HttpResponseRedirect',
  'how are template variables resolved',
  'middleware',
];

const percentile = (values, p) => {
  const sorted = [...values].sort((a, b) => a - b);
  return sorted[Math.min(sorted.length - 1, Math.floor((p / 100) * sorted.length))] ?? 0;
};
const residentMb = (pid) =>
  Number(readFileSync(`/proc/${pid}/status`, 'utf8').match(/VmRSS:\s+(\d+)/)?.[1] ?? 0) / 1024;

// The Python files an edit may touch; each edit appends a function or puts the original back.
const files = [];
const walk = (dir) => {
  for (const entry of readdirSync(dir, { withFileTypes: true })) {
    if (entry.name.startsWith('.')) continue;
    const path = join(dir, entry.name);
    if (entry.isDirectory()) walk(path);
    else if (entry.name.endsWith('.py')) files.push(path);
  }
};
walk(repo);
const originals = new Map();
let edits = 0;
const edit = () => {
  edits += 1;
  const [oldest, original] = [...originals][0] ?? [];
  if (oldest !== undefined && edits % 2 === 0) {
    writeFileSync(oldest, original);
    originals.delete(oldest);
    return;
  }
  const file = files[(edits * 7919) % files.length];
  if (originals.has(file)) return;
  const text = readFileSync(file, 'utf8');
  originals.set(file, text);
  writeFileSync(file, `${text}\n\ndef soak_edit_${edits}(value):\n    """Edited while soaking."""\n    return value\n`);
};

const child = spawn(binary, ['serve', '--repo', repo], { stdio: ['pipe', 'pipe', 'ignore'] });
let buffer = '';
const waiting = new Map();
child.stdout.on('data', (chunk) => {
  buffer += chunk;
  let at;
  while ((at = buffer.indexOf('\n')) >= 0) {
    const message = JSON.parse(buffer.slice(0, at));
    buffer = buffer.slice(at + 1);
    waiting.get(message.id)?.(message);
    waiting.delete(message.id);
  }
});
let nextId = 0;
const ask = (method, params) => new Promise((resolve) => {
  const id = ++nextId;
  waiting.set(id, resolve);
  child.stdin.write(`${JSON.stringify({ jsonrpc: '2.0', id, method, params })}\n`);
});

await ask('initialize', { protocolVersion: '2025-11-25', capabilities: {}, clientInfo: { name: 'soak', version: '1' } });
child.stdin.write('{"jsonrpc":"2.0","method":"notifications/initialized"}\n');
await ask('tools/call', { name: 'explore', arguments: { query: QUERIES[0] } });

console.log(`soak: ${SOAK_SECONDS} s on ${repo} (${files.length} Python files), an edit every ${EDIT_MS} ms`);
console.log('window  calls  calls/s   p50 ms   p99 ms   rss MB  load avg');
const editor = setInterval(edit, EDIT_MS);
const start = performance.now();
const all = [];
let errors = 0;
let window = [];
let windowStart = start;
let index = 0;
const report = (label, values, seconds) => {
  console.log(`${label.padStart(6)} ${String(values.length).padStart(6)} ${(values.length / seconds).toFixed(1).padStart(8)} ` +
    `${percentile(values, 50).toFixed(1).padStart(8)} ${percentile(values, 99).toFixed(1).padStart(8)} ` +
    `${residentMb(child.pid).toFixed(1).padStart(8)} ${loadavg()[0].toFixed(1).padStart(9)}`);
};
while (performance.now() - start < SOAK_SECONDS * 1000) {
  const t = performance.now();
  const reply = await ask('tools/call', { name: 'explore', arguments: { query: QUERIES[index++ % QUERIES.length] } });
  const now = performance.now();
  if (reply.error || reply.result?.isError) errors += 1;
  window.push(now - t);
  all.push(now - t);
  if (now - windowStart >= WINDOW_SECONDS * 1000) {
    report(`${Math.round((now - start) / 1000)}s`, window, (now - windowStart) / 1000);
    window = [];
    windowStart = now;
  }
}
clearInterval(editor);
if (window.length) report(`${Math.round((performance.now() - start) / 1000)}s`, window, (performance.now() - windowStart) / 1000);
report('all', all, (performance.now() - start) / 1000);
console.log(`${edits} edits, ${errors} failed calls; peak resident ` +
  `${(Number(readFileSync(`/proc/${child.pid}/status`, 'utf8').match(/VmHWM:\s+(\d+)/)?.[1] ?? 0) / 1024).toFixed(1)} MB`);
for (const [path, text] of originals) writeFileSync(path, text);
console.log(`restored ${originals.size} edited files under ${relative(process.cwd(), repo) || repo}`);
child.stdin.end();
