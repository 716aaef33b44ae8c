// The server through the official MCP client: lifecycle, tool schemas, every tool and action,
// the next steps of explore answers, and a file edited between two calls.
import { appendFileSync, readFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { check, repositoryCopy, skip } from './harness.mjs';

const TOOL_NAMES = ['explore', 'context', 'symbol', 'file', 'files', 'tests', 'search', 'memory'];

async function call(client, name, args) {
  const result = await client.callTool({ name, arguments: args });
  const text = result.content?.[0]?.text ?? '';
  let answer = null;
  try {
    answer = JSON.parse(text);
  } catch {
    check(false, `${name} answers JSON text`, text);
  }
  return { isError: result.isError === true, answer, text };
}

// The server entry of the README's client configuration, for a repository, with the binary's
// folder first on PATH (where the install step puts it).
function readmeServer(sourceDir, binary, repoDir) {
  const readme = readFileSync(join(sourceDir, 'README.md'), 'utf8');
  const block = readme.match(/```json\n([^`]*mcpServers[^`]*)```/);
  check(block !== null, 'the README has an mcpServers entry');
  const entry = JSON.parse(block?.[1] ?? '{"mcpServers":{"tamsel":{"args":[]}}}').mcpServers.tamsel;
  return {
    command: entry.command,
    args: entry.args.map((a) => (a === '/path/to/repository' ? repoDir : a)),
    env: { ...process.env, PATH: `${dirname(binary)}:${process.env.PATH}` },
  };
}

export default async function sdkClientTest(binary, sourceDir) {
  const repo = repositoryCopy(sourceDir, 'serve_shop');
  const transport = new StdioClientTransport({ ...readmeServer(sourceDir, binary, repo.dir), stderr: 'pipe' });
  const client = new Client({ name: 'tamsel-sdk-test', version: '1.0.0' });
  try {
    await client.connect(transport);
    check(client.getServerVersion()?.name === 'tamsel', 'serverInfo names tamsel');
    check(/explore/.test(client.getInstructions() ?? ''), 'instructions point to explore');

    const { tools } = await client.listTools();
    const byName = Object.fromEntries(tools.map((t) => [t.name, t]));
    check(JSON.stringify(tools.map((t) => t.name)) === JSON.stringify(TOOL_NAMES), 'tool names', tools.map((t) => t.name));
    for (const tool of tools) {
      const schema = tool.inputSchema;
      check(schema.type === 'object' && typeof schema.properties === 'object', `${tool.name} schema is an object`);
      const budget = schema.properties.token_budget;
      check(budget?.type === 'integer' && budget.minimum === 1 && budget.maximum >= 2000, `${tool.name} token_budget range`, budget);
      if (tool.name !== 'memory') check(tool.annotations?.readOnlyHint === true, `${tool.name} is read-only`);
    }
    const explore = byName.explore.inputSchema.properties;
    check(JSON.stringify(explore.depth.enum) === '["quick","standard","deep"]', 'depth enum');
    check(JSON.stringify(explore.scope.enum) === '["file","module","project"]', 'scope enum');
    check(JSON.stringify(byName.explore.inputSchema.required) === '["query"]', 'explore requires query');

    // Explore answers of every route, then every next step they offer.
    const queries = ['shop/cart.py', 'Cart.total', 'how is the cart total computed', 'tests for shop/cart.py',
      'available tools', 'shop'];
    const steps = [];
    const probe = await call(client, 'explore', { query: 'cart' });
    const hasExplore = !/not available in this server/.test(probe.text);
    if (!hasExplore) skip('explore answers and their next steps', 'explore is not in this build');
    for (const query of hasExplore ? queries : []) {
      const r = await call(client, 'explore', { query });
      check(!r.isError && r.answer, `explore '${query}' answers`, r.text);
      for (const step of r.answer?.next_steps ?? []) steps.push(step);
    }
    if (hasExplore) check(steps.length >= 5, 'explore offers next steps', steps.length);
    const fill = { query: 'cart total', task: 'change how the cart total is computed' };
    for (const step of steps) {
      const tool = byName[step.tool];
      check(tool !== undefined, `next step names a tool the server has: ${step.tool}`);
      if (!tool) continue;
      const args = { ...step.arguments };
      for (const name of tool.inputSchema.required ?? []) {
        if (args[name] === undefined) args[name] = fill[name];
      }
      const actions = tool.inputSchema.properties.action?.enum;
      if (args.action !== undefined) check(actions?.includes(args.action), `action ${step.tool}.${args.action} exists`);
      const r = await call(client, step.tool, args);
      check(!r.isError, `next step ${step.tool} ${JSON.stringify(args)} succeeds`, r.text);
    }

    // Every tool and action directly.
    const fqn = 'shop.cart.Cart.total';
    const detail = await call(client, 'symbol', { action: 'detail', fqn });
    check(!detail.isError && /unit_price/.test(detail.answer?.source ?? ''), 'symbol detail has the source', detail.text);
    const price = 'shop.pricing.unit_price';
    const callers = await call(client, 'symbol', { action: 'callers', fqn: price });
    check(callers.answer?.callers?.some((c) => c.fqn === fqn && c.lines?.length > 0), 'symbol callers lists Cart.total', callers.text);
    const refs = await call(client, 'symbol', { action: 'references', fqn: price });
    const kinds = new Set((refs.answer?.references ?? []).filter((r) => r.evidence_backed).map((r) => r.kind));
    check(kinds.has('call') && kinds.has('import'), 'symbol references: evidence-backed calls and imports', refs.text);
    const related = await call(client, 'file', { action: 'related', path: 'shop/cart.py' });
    check(related.answer?.imported_by?.length > 0 && related.answer?.imports?.length > 0, 'file related', related.text);
    const files = await call(client, 'files', { path: 'shop', limit: 2 });
    check(files.answer?.total === 4 && files.answer?.files?.length === 2 && files.answer?.next_offset === 2, 'files paged', files.text);
    const tests = await call(client, 'tests', { action: 'for_file', path: 'shop/cart.py' });
    check(tests.answer?.tests?.some((t) => t.path === 'tests/test_cart.py'), 'tests for_file', tests.text);
    const search = await call(client, 'search', { action: 'code', query: 'unit_price\\(\\w+\\)', regex: true });
    check(search.answer?.total >= 1, 'search regex', search.text);
    const context = await call(client, 'context', { action: 'task', task: 'discount the cart total' });
    check(!context.isError && context.answer?.symbols?.length > 0, 'context task', context.text);
    const saved = await call(client, 'memory', { action: 'save', title: 'Prices', text: 'Prices are in cents', tags: ['money'] });
    if (/not available in this server/.test(saved.text)) {
      skip('memory save, list and delete', 'the memory store is not in this build');
    } else {
      check(!saved.isError && saved.answer?.id > 0, 'memory save', saved.text);
      const listed = await call(client, 'memory', { action: 'list' });
      check(listed.answer?.memories?.some((m) => m.title === 'Prices'), 'memory list', listed.text);
      const deleted = await call(client, 'memory', { action: 'delete', id: saved.answer?.id ?? 0 });
      check(!deleted.isError, 'memory delete', deleted.text);
      const gone = await call(client, 'memory', { action: 'delete', id: saved.answer?.id ?? 0 });
      check(gone.isError, 'deleting a deleted memory is an error', gone.text);
    }
    const outside = await call(client, 'file', { action: 'related', path: '../../etc/passwd' });
    check(outside.isError && /outside the repository/.test(outside.text), 'paths outside are refused', outside.text);

    // An edit between two calls is seen by the second.
    const before = await call(client, 'symbol', { action: 'detail', fqn: 'shop.pricing.apply_coupon' });
    check(before.isError, 'a symbol not yet written is not found', before.text);
    appendFileSync(join(repo.dir, 'shop', 'pricing.py'),
      '\n\ndef apply_coupon(amount, code):\n    """Take a coupon off an amount."""\n    return amount - 10\n');
    const after = await call(client, 'symbol', { action: 'detail', fqn: 'shop.pricing.apply_coupon' });
    check(!after.isError && /amount - 10/.test(after.answer?.source ?? ''), 'the edited file is indexed before the next call', after.text);
    const found = await call(client, 'search', { action: 'code', query: 'apply_coupon' });
    check(found.answer?.total === 1, 'search sees the edit', found.text);
  } finally {
    await client.close();
    repo.cleanup();
  }
}
