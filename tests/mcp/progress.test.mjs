// A client that sends a progress token hears the first index grow, and every result says when
// the index was last brought up to date; while a call waits for the first index, pings and
// tools/list are answered at once and a cancellation ends the wait; SIGTERM stops a server in the
// middle of its first index.
import { spawn } from 'node:child_process';
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { performance } from 'node:perf_hooks';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { check, INITIALIZE, rawServer, request } from './harness.mjs';

// Enough files that the first index is still running when the first call arrives.
const FILES = 3000;

// A repository whose first index takes many seconds; removed by the returned cleanup.
function slowRepository(name) {
  const dir = mkdtempSync(join(tmpdir(), `tamsel-mcp-${name}-`));
  mkdirSync(join(dir, 'pkg'));
  let body = '';
  for (let j = 0; j < 100; j += 1) body += `def g${j}(x):\n    return f() + g${Math.max(j - 1, 0)}(x)\n\n`;
  for (let i = 0; i < 2000; i += 1) writeFileSync(join(dir, 'pkg', `m${i}.py`), `def f():\n    return ${i}\n\n${body}`);
  return { dir, cleanup: () => rmSync(dir, { recursive: true, force: true }) };
}

// While a call waits for the first index, other requests do not wait behind it, and cancelling
// it stops both its wait and its progress.
async function answersWhileIndexing(binary) {
  const repo = slowRepository('busy');
  const server = rawServer(binary, ['serve', '--repo', repo.dir]);
  const progressOf = (token) => server.notes.filter((n) => n.method === 'notifications/progress' && n.params?.progressToken === token);
  const until = async (condition, seconds) => {
    for (const end = performance.now() + seconds * 1000; !condition() && performance.now() < end;) {
      await new Promise((resolve) => setTimeout(resolve, 20));
    }
    return condition();
  };
  try {
    server.send(request(1, 'initialize', INITIALIZE));
    await server.next();
    server.send('{"jsonrpc":"2.0","method":"notifications/initialized"}\n');
    server.send(request(2, 'tools/call', { name: 'files', arguments: {}, _meta: { progressToken: 'p' } }));
    check(await until(() => progressOf('p').some((n) => n.params.progress > 0), 120), 'the waiting call hears progress');
    const asked = performance.now();
    server.send(request(3, 'ping'));
    server.send(request(4, 'tools/list'));
    const quick = [JSON.parse(await server.next(60)), JSON.parse(await server.next(60))];
    const seconds = (performance.now() - asked) / 1000;
    check(quick.map((a) => a.id).join() === '3,4' && quick[1].result?.tools?.length > 0 && seconds < 2,
      'ping and tools/list are answered at once while a call waits for the first index', { seconds, quick: JSON.stringify(quick).slice(0, 200) });
    server.send('{"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":2,"reason":"user"}}\n');
    server.send(request(5, 'ping'));
    const pong = JSON.parse(await server.next(60));
    await new Promise((resolve) => setTimeout(resolve, 300));
    const heard = progressOf('p').length;
    server.send(request(6, 'tools/call', { name: 'files', arguments: { limit: 1 }, _meta: { progressToken: 'q' } }));
    const files = JSON.parse(await server.next(600));
    check(pong.id === 5 && files.id === 6 && JSON.parse(files.result?.content?.[0]?.text ?? '{}').total === 2000,
      'the cancelled call is never answered; the next call is', { pong, files: JSON.stringify(files).slice(0, 300) });
    check(progressOf('p').length === heard && progressOf('q').length > 0, 'a cancelled call hears no more progress',
      { after: progressOf('p').length - heard, q: progressOf('q').length });
    server.child.stdin.end();
    check((await server.exited).code === 0, 'end of input then exits with status 0');
  } finally {
    if (server.child.exitCode === null) server.child.kill('SIGKILL');
    repo.cleanup();
  }
}

// End of input while the first index is built and no call waits for it: the server exits at once;
// the next start goes on from what the index committed.
async function endOfInputDuringFirstIndex(binary) {
  const repo = slowRepository('eof');
  const server = rawServer(binary, ['serve', '--repo', repo.dir]);
  try {
    server.send(request(1, 'initialize', INITIALIZE));
    await server.next();
    for (const end = performance.now() + 120000; !/indexing \d+\/\d+/.test(server.stderr()) && performance.now() < end;) {
      await new Promise((resolve) => setTimeout(resolve, 20));
    }
    const closed = performance.now();
    server.child.stdin.end();
    const { code } = await server.exited;
    const seconds = (performance.now() - closed) / 1000;
    check(code === 0 && seconds < 4,
      'end of input during the first index exits at once with status 0', { code, seconds });
  } finally {
    if (server.child.exitCode === null) server.child.kill('SIGKILL');
    repo.cleanup();
  }
}

// A first index that takes many seconds: SIGTERM, after the client closed its end, ends the server
// within the second it gives a busy call, without the call's answer.
async function stopDuringFirstIndex(binary) {
  const { dir, cleanup } = slowRepository('stop');
  const child = spawn(binary, ['serve', '--repo', dir], { stdio: ['pipe', 'pipe', 'ignore'] });
  const exited = new Promise((resolve) => child.on('exit', (code) => resolve(code)));
  let output = '';
  const indexing = new Promise((resolve) => child.stdout.on('data', (chunk) => {
    output += chunk.toString('utf8');
    if (/"progress":[1-9]/.test(output)) resolve();
  }));
  const send = (message) => child.stdin.write(`${JSON.stringify({ jsonrpc: '2.0', ...message })}\n`);
  try {
    send({ id: 1, method: 'initialize', params: { protocolVersion: '2025-06-18', capabilities: {}, clientInfo: { name: 't', version: '1' } } });
    send({ id: 2, method: 'tools/call', params: { name: 'files', arguments: {}, _meta: { progressToken: 'p' } } });
    await indexing;
    child.stdin.end();
    const signalled = performance.now();
    child.kill('SIGTERM');
    const code = await exited;
    const seconds = (performance.now() - signalled) / 1000;
    check(code === 0 && seconds < 4, 'SIGTERM during the first index exits at once with status 0', { code, seconds });
    check(!output.includes('"id":2'), 'the call cut short by SIGTERM is not answered', output.slice(-300));
  } finally {
    if (child.exitCode === null) child.kill('SIGKILL');
    cleanup();
  }
}

export default async function progressTest(binary) {
  await answersWhileIndexing(binary);
  await endOfInputDuringFirstIndex(binary);
  await stopDuringFirstIndex(binary);
  const dir = mkdtempSync(join(tmpdir(), 'tamsel-mcp-progress-'));
  mkdirSync(join(dir, 'pkg'));
  for (let i = 0; i < FILES; i += 1) {
    writeFileSync(join(dir, 'pkg', `m${i}.py`),
      `from pkg.m${(i * 7) % FILES} import f\n\n\ndef f():\n    """Step ${i}."""\n    return ${i}\n\n\n` +
      `class Worker${i}:\n    def run(self):\n        return f()\n`);
  }
  const transport = new StdioClientTransport({ command: binary, args: ['serve', '--repo', dir], stderr: 'pipe' });
  const client = new Client({ name: 'tamsel-progress-test', version: '1.0.0' });
  try {
    await client.connect(transport);
    const heard = [];
    const result = await client.callTool({ name: 'files', arguments: { limit: 1 } }, undefined, {
      onprogress: (p) => heard.push(p),
      timeout: 600000,
    });
    check(!result.isError && JSON.parse(result.content[0].text).total === FILES, 'the call is answered after the index', result.content[0].text);
    check(heard.length >= 1, 'progress notifications while the first index is built', heard.length);
    check(heard.every((p, i) => i === 0 || p.progress > heard[i - 1].progress), 'progress only grows', heard);
    check(heard.some((p) => p.total === FILES && typeof p.message === 'string'), 'progress counts the files', heard);
    const when = result._meta?.['tamsel/indexed_at'];
    check(/^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$/.test(when ?? '') && Math.abs(Date.parse(when) - Date.now()) < 600000,
      'the result says when the index was brought up to date', result._meta);
    const later = await client.callTool({ name: 'files', arguments: { limit: 1 } }, undefined, { onprogress: () => heard.push('late') });
    check(!heard.includes('late') && later._meta?.['tamsel/indexed_at'] !== undefined, 'an indexed repository reports no progress');
  } finally {
    await client.close();
    rmSync(dir, { recursive: true, force: true });
  }
}
