// A client that sends a progress token hears the first index grow, and every result says when
// the index was last brought up to date; SIGTERM stops a server in the middle of its first index.
import { spawn } from 'node:child_process';
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { check } from './harness.mjs';

// Enough files that the first index is still running when the first call arrives.
const FILES = 3000;

// A first index that takes many seconds: SIGTERM, after the client closed its end, ends the server
// within the second it gives a busy call, without the call's answer.
async function stopDuringFirstIndex(binary) {
  const dir = mkdtempSync(join(tmpdir(), 'tamsel-mcp-stop-'));
  mkdirSync(join(dir, 'pkg'));
  let body = '';
  for (let j = 0; j < 100; j += 1) body += `def g${j}(x):\n    return f() + g${Math.max(j - 1, 0)}(x)\n\n`;
  for (let i = 0; i < 2000; i += 1) writeFileSync(join(dir, 'pkg', `m${i}.py`), `def f():\n    return ${i}\n\n${body}`);
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
    rmSync(dir, { recursive: true, force: true });
  }
}

export default async function progressTest(binary) {
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
