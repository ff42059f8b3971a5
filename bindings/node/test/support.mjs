// What the tests share: directories and databases of their own, programs in processes of their own.
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { test } from 'node:test';

import { open } from 'velmora';

export const packageDirectory =
  path.dirname(createRequire(import.meta.url).resolve('velmora'));

export function inDirectory(name, run) {
  test(name, async () => {
    const directory = fs.mkdtempSync(path.join(os.tmpdir(), 'velmora-'));
    try {
      await run(directory);
    } finally {
      fs.rmSync(directory, { recursive: true });
    }
  });
}

export function withDatabase(name, run, options = {}) {
  inDirectory(name, async (directory) => {
    const database = open(directory, { durability: 'off', ...options });
    try {
      await run(database, directory);
    } finally {
      await database.closeAsync();
    }
  });
}

// A program that knows the package as velmora; its directory is where it runs.
export const program = (lines) =>
  `const velmora = require(${JSON.stringify(packageDirectory)});${lines}`;

export function runNode(directory, lines, ...options) {
  return spawnSync(process.execPath, [...options, '-e', program(lines)],
    { cwd: directory, encoding: 'utf8', timeout: 60_000 });
}

// The same, killed when it has written its first line.
export async function killedNode(directory, lines) {
  const child = spawn(process.execPath, ['-e', program(lines)],
    { cwd: directory, stdio: ['ignore', 'pipe', 'inherit'] });
  const [line] = await once(child.stdout, 'data');
  child.kill('SIGKILL');
  await once(child, 'exit');
  return String(line);
}

// An error of the package without a place.
export const refusal = (code, message) => ({
  code: `VELMORA_${code}`, message, offset: null, table: null, column: null,
});
