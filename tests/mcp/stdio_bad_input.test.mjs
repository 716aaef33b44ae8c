// Bad input through the process's stdin and stdout: each gets its error, and the next request
// is still answered; end of input and SIGTERM end the server with status 0.
import { check, rawServer, repositoryCopy, request } from './harness.mjs';

const start = (binary, dir) => rawServer(binary, ['serve', '--repo', dir]);
const toolCall = (id, name, args) => request(id, 'tools/call', { name, arguments: args });

export default async function stdioBadInputTest(binary, sourceDir) {
  const repo = repositoryCopy(sourceDir, 'serve_shop');
  const server = start(binary, repo.dir);
  let pingId = 1000;
  // Sends the bad input, checks its answer, then checks that a ping is still answered.
  async function expect(what, data, checkAnswer) {
    server.send(data);
    if (checkAnswer) {
      const line = await server.next();
      let answer = null;
      try { answer = JSON.parse(line); } catch { /* checked below */ }
      check(answer !== null, `${what}: the answer is one JSON line`, line.slice(0, 200));
      if (answer) checkAnswer(answer);
    }
    const id = ++pingId;
    server.send(request(id, 'ping'));
    const pong = JSON.parse(await server.next());
    check(pong.id === id && JSON.stringify(pong.result) === '{}', `${what}: the next request is answered`, pong);
  }
  const rpcError = (what, code, id = null) => (a) =>
    check(a.error?.code === code && JSON.stringify(a.id) === JSON.stringify(id), what, a);
  const toolError = (what, pattern) => (a) =>
    check(a.result?.isError === true && pattern.test(a.result.content[0].text), what, a);

  try {
    await expect('request before initialize', request(1, 'tools/list'), rpcError('tools/list before initialize', -32600, 1));
    await expect('initialize', request(2, 'initialize', { protocolVersion: '2025-11-25', capabilities: {}, clientInfo: { name: 't', version: '1' } }),
      (a) => check(a.result?.protocolVersion === '2025-11-25', 'initialize answers the version', a));
    await expect('initialized notification', '{"jsonrpc":"2.0","method":"notifications/initialized"}\n');
    await expect('invalid JSON', '{"jsonrpc": "2.0", "id": 3,\n', rpcError('invalid JSON', -32700));
    await expect('invalid UTF-8', Buffer.concat([Buffer.from('{"jsonrpc":"2.0","id":4,"method":"ping","params":{"x":"'), Buffer.from([0xc3, 0x28, 0xff]), Buffer.from('"}}\n')]),
      rpcError('invalid UTF-8', -32700));
    await expect('a batch of non-requests', '[1, 2, 3]\n', (a) =>
      check(Array.isArray(a) && a.length === 3 && a.every((e) => e.error?.code === -32600 && e.id === null), 'each element gets its error', a));
    await expect('a batch', `[${request(40, 'ping').trim()},{"jsonrpc":"2.0","method":"notifications/initialized"},${toolCall(41, 'files', { limit: 1 }).trim()},${request(42, 'tools/list').trim()}]\n`,
      (a) => check(Array.isArray(a) && a.map((e) => e.id).sort().join() === '40,41,42' && a.every((e) => e.result !== undefined), 'a batch is answered as one array, notifications left out', a));
    await expect('a second initialize', request(43, 'initialize', { protocolVersion: '2024-11-05', capabilities: {}, clientInfo: { name: 't', version: '1' } }),
      (a) => check(a.id === 43 && a.error?.code === -32600 && /already initialized/.test(a.error.message), 'a second initialize is refused', a));
    await expect('a JSON number', '17\n', rpcError('a number', -32600));
    await expect('no jsonrpc field', '{"id":5,"method":"ping"}\n', rpcError('missing jsonrpc', -32600, 5));
    await expect('an id of the wrong type', '{"jsonrpc":"2.0","id":[1],"method":"ping"}\n', rpcError('bad id', -32600));
    await expect('a method that is not a string', '{"jsonrpc":"2.0","id":6,"method":{}}\n', rpcError('method not a string', -32600, 6));
    await expect('params not an object', '{"jsonrpc":"2.0","id":7,"method":"tools/list","params":3}\n', rpcError('params not an object', -32602, 7));
    await expect('unknown method', request(8, 'resources/read', {}), rpcError('unknown method', -32601, 8));
    await expect('unknown tool', toolCall(9, 'grep', {}), rpcError('unknown tool', -32602, 9));
    await expect('missing argument', toolCall(10, 'explore', {}), rpcError('missing query', -32602, 10));
    await expect('wrong argument type', toolCall(11, 'explore', { query: ['a'] }), rpcError('query not a string', -32602, 11));
    await expect('budget as a string', toolCall(12, 'explore', { query: 'cart', token_budget: '100' }), rpcError('budget string', -32602, 12));
    await expect('budget as a fraction', toolCall(13, 'explore', { query: 'cart', token_budget: 10.5 }), rpcError('budget fraction', -32602, 13));
    await expect('budget zero', toolCall(14, 'explore', { query: 'cart', token_budget: 0 }), toolError('budget 0', /token_budget/));
    await expect('budget negative', toolCall(15, 'explore', { query: 'cart', token_budget: -5 }), toolError('budget < 0', /token_budget/));
    await expect('budget too large', toolCall(16, 'explore', { query: 'cart', token_budget: 1e9 }), toolError('budget > max', /token_budget/));
    await expect('unknown depth', toolCall(17, 'explore', { query: 'cart', depth: 'abyss' }), toolError('depth', /depth/));
    await expect('unknown action', toolCall(18, 'symbol', { action: 'rename', fqn: 'x' }), toolError('action', /action/));
    await expect('path with ..', toolCall(19, 'files', { path: '../..' }), toolError('..', /outside the repository/));
    await expect('absolute path elsewhere', toolCall(20, 'tests', { action: 'for_file', path: '/etc/passwd' }), toolError('absolute', /outside the repository/));
    await expect('path with a NUL byte', toolCall(21, 'file', { action: 'related', path: 'shop/\u0000cart.py' }), toolError('NUL', /NUL/));
    await expect('bad regular expression', toolCall(22, 'search', { action: 'code', query: '(', regex: true }), toolError('regex', /regular expression/));
    await expect('a 6 MB line', `{"jsonrpc":"2.0","id":23,"method":"ping","params":{"pad":"${'x'.repeat(6 * 1024 * 1024)}"}}\n`,
      rpcError('an oversized line gets its error with its id', -32600, 23));
    await expect('nesting a million deep', `{"jsonrpc":"2.0","id":30,"method":"ping","params":{"a":${'['.repeat(1e6)}${']'.repeat(1e6)}}}\n`,
      rpcError('deep nesting', -32600));
    await expect('a 1 MB query', toolCall(24, 'explore', { query: 'cart '.repeat(200000) }), toolError('1 MB query', /shorten/));
    await expect('unknown scope', toolCall(31, 'explore', { query: 'cart', scope: 'galaxy' }), toolError('scope', /scope/));
    await expect('path with backslashes', toolCall(32, 'file', { action: 'symbols', path: '..\\..\\etc\\passwd' }), toolError('backslashes', /outside the repository|not indexed|no file/i));
    await expect('a very long path', toolCall(33, 'file', { action: 'related', path: `${'a/'.repeat(5000)}x.py` }), toolError('long path', /./));
    await expect('absolute folder', toolCall(34, 'files', { path: '/etc' }), toolError('absolute folder', /outside the repository/));
    await expect('NUL in a folder', toolCall(35, 'files', { path: 'shop\u0000/../..' }), toolError('NUL folder', /NUL/));
    await expect('an empty batch', '[]\n', rpcError('empty batch', -32600));
    await expect('tools/call without a name', request(36, 'tools/call', { arguments: {} }), rpcError('no tool name', -32602, 36));
    await expect('limit above its maximum', toolCall(37, 'files', { limit: 1e6 }), toolError('limit', /limit/));
    // A cancellation of a request not (or no longer) running gets no answer and changes nothing.
    await expect('cancelling what is not running', `{"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":25}}\n`);
    const good = toolCall(26, 'files', {});
    server.send(good);
    const files = JSON.parse(await server.next());
    check(files.id === 26 && files.result?.isError === false, 'a good call after all of it', files);

    // A last request without its newline is still answered.
    server.send(request(27, 'ping').trim());
    server.child.stdin.end();
    const last = JSON.parse(await server.next());
    check(last.id === 27, 'a last line without a newline is answered', last);
    const end = await server.exited;
    check(end.code === 0, 'end of input exits with status 0', end);

    const second = start(binary, repo.dir);
    second.send(request(1, 'initialize', { protocolVersion: '2024-11-05' }));
    const init = JSON.parse(await second.next());
    check(init.result?.protocolVersion === '2024-11-05', 'an older supported version is kept', init);
    second.send(toolCall(2, 'files', {}));
    await second.next();
    second.child.kill('SIGTERM');
    const term = await second.exited;
    check(term.code === 0, 'SIGTERM exits with status 0', term);
  } finally {
    if (server.child.exitCode === null) server.child.kill('SIGKILL');
    repo.cleanup();
  }
}
