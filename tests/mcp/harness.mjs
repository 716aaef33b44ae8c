// A small test harness: named checks, a temporary copy of a test repository, a closing count.
import { cpSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

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
