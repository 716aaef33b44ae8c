// Runs the MCP tests against a tamsel binary: node tests/mcp/run.mjs BINARY
import { resolve, dirname } from 'node:path';
import { fileURLToPath } from 'node:url';
import { results } from './harness.mjs';
import sdkClientTest from './sdk_client.test.mjs';
import stdioBadInputTest from './stdio_bad_input.test.mjs';

const binary = resolve(process.argv[2] ?? 'build/tamsel');
const sourceDir = resolve(dirname(fileURLToPath(import.meta.url)), '..', '..');
for (const [name, test] of [['stdio bad input', stdioBadInputTest], ['sdk client', sdkClientTest]]) {
  try {
    await test(binary, sourceDir);
  } catch (error) {
    results.failed += 1;
    console.log(`FAIL ${name}: ${error?.stack ?? error}`);
  }
}
if (results.skipped.length) console.log(`${results.skipped.length} checks skipped (see SKIP above)`);
console.log(`${results.passed} passed, ${results.failed} failed`);
process.exit(results.failed === 0 ? 0 : 1);
