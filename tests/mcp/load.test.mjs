// Load: every advertised tool, pipelined without waiting for answers. Each request is answered
// exactly once and without error, the run ends within a bound, and the server's resident memory
// after the run stays within 10% of what it was after the first 1,000 answers.
// TAMSEL_LOAD_REQUESTS (default 10000) and TAMSEL_LOAD_SECONDS (default 90) scale it down for
// slow builds.
import { spawn } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { performance } from 'node:perf_hooks';
import { check, eachLine, repositoryCopy } from './harness.mjs';

const REQUESTS = Number(process.env.TAMSEL_LOAD_REQUESTS ?? 10000);
const SECONDS = Number(process.env.TAMSEL_LOAD_SECONDS ?? 90);
const WARM = Math.min(1000, Math.floor(REQUESTS / 10));

// Arguments for each tool, used in turn; a tool the server adds must be given some here.
const ARGUMENTS = {
  explore: [{ query: 'how is the cart total computed' }, { query: 'Cart.total' }, { query: 'shop/cart.py' },
    { query: 'tests for shop/cart.py', depth: 'deep' }, { query: 'cart discount', scope: 'file' }],
  context: [{ action: 'task', task: 'discount the cart total' }],
  symbol: [{ action: 'detail', fqn: 'shop.cart.Cart.total' }, { action: 'callers', fqn: 'shop.pricing.unit_price' },
    { action: 'references', fqn: 'shop.pricing.unit_price' }],
  file: [{ action: 'related', path: 'shop/cart.py' }],
  files: [{ path: 'shop', limit: 2 }, { path: '', offset: 1 }],
  tests: [{ action: 'for_file', path: 'shop/cart.py' }],
  search: [{ action: 'code', query: 'unit_price' }, { action: 'code', query: 'def \\w+\\(self', regex: true }],
  memory: [{ action: 'list' }],
};

const residentMb = (pid) => {
  const status = readFileSync(`/proc/${pid}/status`, 'utf8');
  return Number(status.match(/VmRSS:\s+(\d+)/)?.[1] ?? 0) / 1024;
};

export default async function loadTest(binary, sourceDir) {
  const repo = repositoryCopy(sourceDir, 'serve_shop');
  const child = spawn(binary, ['serve', '--repo', repo.dir], { stdio: ['pipe', 'pipe', 'pipe'] });
  child.stderr.resume();
  const answers = new Map();  // id -> times answered
  const pending = new Map();  // id -> waiter, for the requests before the load
  const failures = [];
  let answered = 0;
  let warmRss = 0;
  let onAllAnswered;
  const allAnswered = new Promise((resolve) => { onAllAnswered = resolve; });
  eachLine(child.stdout, (line) => {
    let message;
    try { message = JSON.parse(line); } catch { failures.push(line.slice(0, 200)); return; }
    if (message.error || message.result?.isError) failures.push(line.slice(0, 300));
    if (pending.has(message.id)) {
      pending.get(message.id)(message);
      return;
    }
    answers.set(message.id, (answers.get(message.id) ?? 0) + 1);
    answered += 1;
    if (answered === WARM) warmRss = residentMb(child.pid);
    if (answered === REQUESTS) onAllAnswered();
  });
  const send = (id, method, params) =>
    child.stdin.write(`${JSON.stringify({ jsonrpc: '2.0', id, method, ...(params ? { params } : {}) })}\n`);
  const ask = (id, method, params) => new Promise((resolve) => {
    pending.set(id, resolve);
    send(id, method, params);
  });

  const timer = setTimeout(() => onAllAnswered(), SECONDS * 1000);
  try {
    await ask(-1, 'initialize', { protocolVersion: '2025-11-25', capabilities: {}, clientInfo: { name: 'load', version: '1' } });
    child.stdin.write('{"jsonrpc":"2.0","method":"notifications/initialized"}\n');
    // The advertised tools decide the mix; a memory makes explore answers carry one.
    const tools = (await ask(-2, 'tools/list')).result.tools.map((t) => t.name);
    await ask(-3, 'tools/call', { name: 'memory', arguments: { action: 'save', title: 'Cart totals', text: 'The cart total is in cents.' } });
    const missing = tools.filter((name) => !ARGUMENTS[name]);
    check(tools.length >= 8 && missing.length === 0, 'the load mix covers every advertised tool', { tools, missing });

    const started = performance.now();
    const used = tools.filter((name) => ARGUMENTS[name]);
    for (let id = 1; id <= REQUESTS; id += 1) {
      const name = used[id % used.length];
      const choices = ARGUMENTS[name];
      if (id % 97 === 0) send(id, 'ping');
      else send(id, 'tools/call', { name, arguments: choices[Math.floor(id / used.length) % choices.length] });
    }
    await allAnswered;
    const seconds = (performance.now() - started) / 1000;
    const finalRss = residentMb(child.pid);
    console.log(`load: ${answered} of ${REQUESTS} answered in ${seconds.toFixed(1)} s ` +
      `(${(answered / seconds).toFixed(0)}/s); resident ${warmRss.toFixed(1)} MB after ${WARM}, ` +
      `${finalRss.toFixed(1)} MB after all`);

    const twice = [...answers].filter(([, n]) => n !== 1).map(([id]) => id);
    const unanswered = [];
    for (let id = 1; id <= REQUESTS; id += 1) if (!answers.has(id)) unanswered.push(id);
    check(unanswered.length === 0, `every request answered within ${SECONDS} s`, { count: unanswered.length, first: unanswered.slice(0, 5) });
    check(twice.length === 0, 'no request answered twice', twice.slice(0, 5));
    check(failures.length === 0, 'no request failed', { count: failures.length, first: failures[0] });
    check(finalRss <= warmRss * 1.1, 'resident memory flat under load', { warmRss, finalRss });
  } finally {
    clearTimeout(timer);
    child.stdin.end();
    // A sanitizer's report (a leak, say) ends the server with another status.
    const code = await new Promise((resolve) => child.on('exit', resolve));
    check(code === 0, 'the server ends cleanly after the load', code);
    repo.cleanup();
  }
}
