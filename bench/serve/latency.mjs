// Times explore calls through one warm server and through one `tamsel explore` process each.
import { spawn, spawnSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { performance } from 'node:perf_hooks';

const [binary, repo, roundsText] = process.argv.slice(2);
const rounds = Number(roundsText ?? 5);
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
  return sorted[Math.min(sorted.length - 1, Math.floor((p / 100) * sorted.length))];
};
const ms = (v) => `${v.toFixed(1)} ms`;
const memory = (pid) => {
  const status = readFileSync(`/proc/${pid}/status`, 'utf8');
  const kb = (key) => Number(status.match(new RegExp(`${key}:\\s+(\\d+)`))?.[1] ?? 0);
  return { rss: kb('VmRSS') / 1024, peak: kb('VmHWM') / 1024 };
};

const t0 = performance.now();
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
  }
});
let nextId = 0;
const ask = (method, params) => new Promise((resolve) => {
  const id = ++nextId;
  waiting.set(id, resolve);
  child.stdin.write(`${JSON.stringify({ jsonrpc: '2.0', id, method, params })}\n`);
});

await ask('initialize', { protocolVersion: '2025-11-25', capabilities: {}, clientInfo: { name: 'bench', version: '1' } });
const initialized = performance.now() - t0;
child.stdin.write('{"jsonrpc":"2.0","method":"notifications/initialized"}\n');
const t1 = performance.now();
await ask('tools/call', { name: 'explore', arguments: { query: QUERIES[0] } });
const firstCall = performance.now() - t1;

const served = [];
for (let r = 0; r < rounds; r += 1) {
  for (const query of QUERIES) {
    const t = performance.now();
    const reply = await ask('tools/call', { name: 'explore', arguments: { query } });
    served.push(performance.now() - t);
    if (reply.result?.isError) console.error(`error for ${query}: ${reply.result.content[0].text}`);
  }
}
const mem = memory(child.pid);
child.stdin.end();

const cli = [];
for (let r = 0; r < Math.min(rounds, 3); r += 1) {
  for (const query of QUERIES) {
    const t = performance.now();
    spawnSync(binary, ['explore', '--repo', repo, query], { stdio: 'ignore' });
    cli.push(performance.now() - t);
  }
}

console.log(`corpus: ${repo}, ${QUERIES.length} queries`);
console.log(`server start-up to initialize answer: ${ms(initialized)}; first tool call: ${ms(firstCall)}`);
console.log(`server memory after ${served.length} calls: rss ${mem.rss.toFixed(1)} MB, peak ${mem.peak.toFixed(1)} MB`);
console.log(`explore through the server (${served.length} calls): p50 ${ms(percentile(served, 50))}, p95 ${ms(percentile(served, 95))}`);
console.log(`tamsel explore, one process per query (${cli.length} runs): p50 ${ms(percentile(cli, 50))}, p95 ${ms(percentile(cli, 95))}`);
console.log(`ratio of p50s (process / server): ${(percentile(cli, 50) / percentile(served, 50)).toFixed(1)}x`);
