// Runs the MCP tests against a tamsel binary: node tests/mcp/run.mjs BINARY [TEST NAME...]
import { resolve, dirname } from 'node:path';
import { fileURLToPath } from 'node:url';
import { results } from './harness.mjs';
import sdkClientTest from './sdk_client.test.mjs';
import stdioBadInputTest from './stdio_bad_input.test.mjs';
import loadTest from './load.test.mjs';
import progressTest from './progress.test.mjs';
import unopenableRepoTest from './unopenable_repo.test.mjs';

const binary = resolve(process.argv[2] ?? 'build/tamsel');
const sourceDir = resolve(dirname(fileURLToPath(import.meta.url)), '..', '..');
const only = process.argv.slice(3);
const all = [['stdio bad input', stdioBadInputTest], ['sdk client', sdkClientTest], ['load', loadTest],
  ['progress', progressTest], ['unopenable repository', unopenableRepoTest]];
for (const [name, test] of all.filter(([name]) => only.length === 0 || only.includes(name))) {
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
