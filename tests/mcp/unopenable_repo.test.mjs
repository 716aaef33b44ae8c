// A repository the server cannot open: it still speaks the protocol, and every tool call says
// which path and why, as does its standard error.
import { chmodSync, copyFileSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { check, INITIALIZE, rawServer, request } from './harness.mjs';

async function speaksAndSaysWhy(binary, what, path, why, options = {}) {
  const server = rawServer(binary, ['serve', '--repo', path], options);
  try {
    server.send(request(1, 'initialize', INITIALIZE));
    const init = JSON.parse(await server.next());
    server.send('{"jsonrpc":"2.0","method":"notifications/initialized"}\n');
    server.send(request(2, 'tools/list'));
    const list = JSON.parse(await server.next());
    check(init.result?.serverInfo?.name === 'tamsel' && list.result?.tools?.length > 0, `${what}: initialize and tools/list answered`, { init, list });
    for (const [id, name, args] of [[3, 'explore', { query: 'cart' }], [4, 'files', {}], [5, 'files', {}]]) {
      server.send(request(id, 'tools/call', { name, arguments: args }));
      const answer = JSON.parse(await server.next());
      const text = answer.result?.content?.[0]?.text ?? '';
      check(answer.id === id && answer.result?.isError === true && text.includes(path) && why.test(text),
        `${what}: ${name} call ${id} is a tool error naming the path and why`, answer);
    }
    server.child.stdin.end();
    const end = await server.exited;
    check(end.code === 0 && server.stderr().includes(path) && why.test(server.stderr()),
      `${what}: exits with status 0 and says it on standard error`, { end, stderr: server.stderr().slice(0, 300) });
  } finally {
    if (server.child.exitCode === null) server.child.kill('SIGKILL');
  }
}

export default async function unopenableRepoTest(binary) {
  const dir = mkdtempSync(join(tmpdir(), 'tamsel-mcp-unopenable-'));
  try {
    await speaksAndSaysWhy(binary, 'a missing folder', join(dir, 'missing'), /does not exist/);
    writeFileSync(join(dir, 'plain.txt'), 'not a folder\n');
    await speaksAndSaysWhy(binary, 'a file', join(dir, 'plain.txt'), /not a folder/);
    // Root reads any folder: the server then runs as nobody.
    chmodSync(dir, 0o755);
    const locked = mkdtempSync(join(dir, 'locked-'));
    chmodSync(locked, 0o000);
    let runner = binary;
    let asNobody = {};
    if (process.getuid?.() === 0) {
      // nobody may not reach the binary where it was built or installed (a private temp folder).
      runner = join(dir, 'tamsel');
      copyFileSync(binary, runner);
      chmodSync(runner, 0o755);
      asNobody = { uid: 65534, gid: 65534 };
    }
    await speaksAndSaysWhy(runner, 'an unreadable folder', locked, /cannot be read/, asNobody);
  } finally {
    rmSync(dir, { recursive: true, force: true });
  }
}
