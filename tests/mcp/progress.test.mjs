// A client that sends a progress token hears the first index grow, and every result says when
// the index was last brought up to date.
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { check } from './harness.mjs';

// Enough files that the first index is still running when the first call arrives.
const FILES = 3000;

export default async function progressTest(binary) {
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
