// The README's own program: its blocks of JavaScript, one behind another, print what it shows.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import process from 'node:process';

import { inDirectory, packageDirectory } from './support.mjs';

const readme = fs.readFileSync(path.join(packageDirectory, 'README.md'), 'utf8');
const blocks = (mark) => [...readme.matchAll(new RegExp(`^\`\`\`${mark}\n(.*?)^\`\`\`$`, 'gms'))]
  .map(([, text]) => text).join('');

inDirectory('the README shows what its blocks print', (directory) => {
  fs.mkdirSync(path.join(directory, 'node_modules'));
  fs.symlinkSync(packageDirectory, path.join(directory, 'node_modules', 'velmora'));
  fs.writeFileSync(path.join(directory, 'readme.mjs'), blocks('js'));
  const { stdout, stderr } = spawnSync(process.execPath, ['readme.mjs'],
    { cwd: directory, encoding: 'utf8', timeout: 60_000 });
  assert.equal(stderr, '');
  assert.equal(stdout, blocks('text'));
});
