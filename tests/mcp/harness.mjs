// A small test harness: named checks, a temporary copy of a test repository, a closing count.
import { spawn } from 'node:child_process';
import { cpSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { performance } from 'node:perf_hooks';

export const results = { passed: 0, failed: 0, skipped: [] };

export function check(condition, what, detail) {
  if (condition) {
    results.passed += 1;
  } else {
    results.failed += 1;
    console.log(`FAIL ${what}${detail === undefined ? '' : `: ${JSON.stringify(detail).slice(0, 400)}`}`);
  }
}

// Checks that cannot run against this build are named, not counted.
export function skip(what, why) {
  results.skipped.push(what);
  console.log(`SKIP ${what}: ${why}`);
}

// A fresh copy of tests/data/NAME, removed by the returned cleanup.
export function repositoryCopy(sourceDir, name) {
  const dir = mkdtempSync(join(tmpdir(), `tamsel-mcp-${name}-`));
  cpSync(join(sourceDir, 'tests', 'data', name), dir, { recursive: true });
  return { dir, cleanup: () => rmSync(dir, { recursive: true, force: true }) };
}

// A server process spoken to in raw lines: `next()` gives the next answer (a line with an id),
// `notes` collects the notifications it sent, with the time each arrived.
// Calls onLine with each newline-ended line the stream writes, as it arrives.
export function eachLine(stream, onLine) {
  let buffer = '';
  stream.on('data', (chunk) => {
    buffer += chunk.toString('utf8');
    let at;
    while ((at = buffer.indexOf('\n')) >= 0) {
      const line = buffer.slice(0, at);
      buffer = buffer.slice(at + 1);
      onLine(line);
    }
  });
}

export function rawServer(binary, args, options = {}) {
  const child = spawn(binary, args, { stdio: ['pipe', 'pipe', 'pipe'], ...options });
  const answers = [];
  const waiters = [];
  const notes = [];
  let stderr = '';
  eachLine(child.stdout, (line) => {
    let message = null;
    try { message = JSON.parse(line); } catch { /* kept as text */ }
    if (message && !Array.isArray(message) && message.method && message.id === undefined) {
      notes.push({ ...message, at: performance.now() });
      return;
    }
    answers.push(line);
    while (waiters.length && answers.length) waiters.shift()(answers.shift());
  });
  child.stderr.on('data', (chunk) => { stderr += chunk.toString('utf8'); });
  // A binary that cannot be started fails its test instead of the whole run.
  const exited = new Promise((resolve) => {
    child.on('exit', (code, signal) => resolve({ code, signal }));
    child.on('error', (error) => {
      stderr += `${error}`;
      resolve({ code: null, signal: null, error });
    });
  });
  const next = (seconds = 30) => new Promise((resolve, reject) => {
    if (answers.length) return resolve(answers.shift());
    const timer = setTimeout(() => reject(new Error(`no answer within ${seconds} s`)), seconds * 1000);
    waiters.push((line) => { clearTimeout(timer); resolve(line); });
  });
  const send = (data) => child.stdin.write(data);
  return { child, next, send, exited, notes, stderr: () => stderr };
}

export const request = (id, method, params) =>
  `${JSON.stringify({ jsonrpc: '2.0', id, method, ...(params ? { params } : {}) })}\n`;
export const INITIALIZE = { protocolVersion: '2025-06-18', capabilities: {}, clientInfo: { name: 't', version: '1' } };
