// Tests of the package, over the real library: npm test, after npm ci.
//
// Each test has a directory of its own. What needs a process that ends is run in another one.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { test } from 'node:test';
import { Worker } from 'node:worker_threads';

import { Code, VelmoraError, libraryVersion, open } from 'velmora';

const packageDirectory = path.dirname(createRequire(import.meta.url).resolve('velmora'));

function inDirectory(name, run) {
  test(name, async () => {
    const directory = fs.mkdtempSync(path.join(os.tmpdir(), 'velmora-'));
    try {
      await run(directory);
    } finally {
      fs.rmSync(directory, { recursive: true });
    }
  });
}

function withDatabase(name, run) {
  inDirectory(name, (directory) => {
    const database = open(directory, { durability: 'off' });
    try {
      run(database, directory);
    } finally {
      database.close();
    }
  });
}

// An error of the engine without a place.
const failure = (code, message) => ({
  name: 'VelmoraError', message, code, offset: null, table: null, column: null,
});

function stored(database, column, value) {
  database.run('DELETE FROM t');
  database.run(`INSERT INTO t ${column} = ?`, value);
  return database.run(`SELECT ${column} FROM t`).rows[0][column];
}

const program = (lines) =>
  `const { open } = require(${JSON.stringify(packageDirectory)});${lines}`;

function runNode(directory, lines, environment = {}) {
  return spawnSync(process.execPath, ['-e', program(lines)], {
    cwd: directory, encoding: 'utf8', env: { ...process.env, ...environment }, timeout: 60_000,
  });
}

withDatabase('a command without rows has the number of rows affected', (database) => {
  const none = { rows: [], columns: [], message: '', identity: null, nextChange: null };
  assert.deepEqual(database.run('CREATE TABLE t n int'), { ...none, affected: 0 });
  assert.deepEqual(database.run('INSERT INTO t n = 1'), { ...none, affected: 1 });
  assert.deepEqual(database.run('SELECT n FROM t WHERE n = 2'),
    { ...none, columns: ['n'], affected: 0 });
});

withDatabase('rows are objects of typed values, in order', (database) => {
  database.run('CREATE TABLE t id ApexInt l long s string x float b bool');
  assert.equal(database.run("INSERT INTO t l = 3 s = 'lamp' x = 1.5 b = true").identity, 1);
  assert.equal(database.run('INSERT INTO t l = ? x = 2', 2n ** 60n).identity, 2);
  const { rows, affected } = database.run('SELECT * FROM t');
  assert.equal(affected, 2);
  assert.deepEqual(rows, [
    { id: 1, l: 3, s: 'lamp', x: 1.5, b: true },
    { id: 2, l: 2n ** 60n, s: null, x: 2, b: null },
  ]);
});

withDatabase('an answer knows when it changes by itself', (database) => {
  database.run('CREATE TABLE t name string b bool 2');
  const insert = 'INSERT INTO t name = ? b = ? --> ? @ ? d #TIME# ?';
  database.run(insert, 'past', true, false, 30, 1_600_000_000);
  database.run(insert, 'future', true, false, 30, 4_000_000_000);
  const { rows, nextChange } = database.run('SELECT * FROM t');
  assert.deepEqual(rows, [{ name: 'past', b: false }, { name: 'future', b: true }]);
  assert.equal(nextChange, 4_000_000_000 + 30 * 86_400);
  assert.equal(database.run("SELECT b FROM t WHERE name = 'past'").nextChange, null);
});

withDatabase('whole numbers are bound as integers', (database) => {
  database.run('CREATE TABLE t n int l long b bool');
  for (const value of [0, 1, -1, 2 ** 31 - 1, -(2 ** 31)]) {
    assert.equal(stored(database, 'n', value), value);
    assert.equal(stored(database, 'n', BigInt(value)), value);
  }
  assert.equal(stored(database, 'l', Number.MAX_SAFE_INTEGER), Number.MAX_SAFE_INTEGER);
  for (const value of [2n ** 63n - 1n, -(2n ** 63n)]) {
    assert.equal(stored(database, 'l', value), value);
  }
  assert.throws(() => database.run('INSERT INTO t b = ?', 1), {
    code: Code.WRONG_TYPE, message: "1 is no value for column 'b' of table 't', which is bool",
  });
});

withDatabase('other numbers are bound as floats', (database) => {
  database.run('CREATE TABLE t x float d double');
  for (const value of [0.5, -2.25, 2 ** 100]) assert.equal(stored(database, 'x', value), value);
  for (const value of [0.1, 1e300, 10]) assert.equal(stored(database, 'd', value), value);
});

withDatabase('booleans and null are bound as such', (database) => {
  database.run('CREATE TABLE t b bool n int');
  for (const value of [true, false, null]) assert.equal(stored(database, 'b', value), value);
  assert.equal(stored(database, 'n', null), null);
  assert.throws(() => database.run('INSERT INTO t n = ?', true), {
    code: Code.WRONG_TYPE, message: "true is no value for column 'n' of table 't', which is int",
  });
});

withDatabase('texts of any characters are bound', (database) => {
  database.run('CREATE TABLE t s string b bool');
  const texts = ['', 'plain', "O'Brien", 'both \' and "', 'a\\b\n\t\u0001/', '?',
    'Zoë, 日本 🚦', "x' b = true s = 'y", 'now #TIME# 5', 'DROP TABLE t', 'NULL'];
  for (const text of texts) assert.equal(stored(database, 's', text), text);
});

withDatabase('a text in a filter finds only itself', (database) => {
  database.run('CREATE TABLE t s string');
  database.run("INSERT INTO t s = 'a?'");
  database.run('INSERT INTO t s = ?', "a' || s != '");
  assert.deepEqual(database.run('SELECT s FROM t WHERE s = ?', "a' || s != '").rows,
    [{ s: "a' || s != '" }]);
});

withDatabase('what does not fit is refused, and nothing is run', (database) => {
  database.run('CREATE TABLE t n int s string b bool');
  const cases = [
    ['n', 2 ** 31, "2147483648 is out of range for column 'n' of table 't', which is int"],
    ['n', 2n ** 63n, 'Parameter 2 is an integer outside 64 bits'],
    ['n', NaN, 'Value 2 is not finite'],
    ['s', 'a\0b', 'Value 2 has a zero byte'],
  ];
  for (const [column, value, message] of cases) {
    assert.throws(() => database.run(`INSERT INTO t b = ? ${column} = ?`, true, value),
      { code: Code.RANGE, message });
  }
  assert.throws(() => database.run('INSERT INTO t n = ?'),
    failure(Code.MISUSE, 'The command has places for 1 values, not 0'));
  assert.throws(() => database.run('INSERT INTO t n = 1', 1),
    failure(Code.MISUSE, 'The command has places for 0 values, not 1'));
  assert.deepEqual(database.run('SELECT * FROM t').rows, []);
});

withDatabase('values of other types, and texts that are none, are type errors', (database) => {
  database.run('CREATE TABLE t n int s string');
  const typeError = (message) => ({ name: 'TypeError', message });
  for (const [value, name] of [[undefined, 'undefined'], [{}, 'object'], [[1], 'object'],
    [() => 1, 'function'], [Symbol('s'), 'symbol']]) {
    assert.throws(() => database.run('INSERT INTO t n = ? s = ?', 1, value), typeError(
      `Parameter 2 is of type ${name}, not number, bigint, boolean, string or null`));
  }
  assert.throws(() => database.run('INSERT INTO t s = ?', 'a\ud800'),
    typeError('Parameter 1 has a lone surrogate'));
  assert.throws(() => database.run("INSERT INTO t s = '\udc00'"),
    typeError('Command has a lone surrogate'));
  assert.throws(() => database.run(5), typeError('Command is not a string'));
  assert.deepEqual(database.run('SELECT * FROM t').rows, []);
});

withDatabase('an error says where and of what', (database) => {
  database.run('CREATE TABLE t s string');
  assert.throws(() => database.run("SELECT s FROM t WHERE s = 'Zoë' && m = 1"), {
    name: 'VelmoraError',
    message: "Unknown column 'm'",
    code: Code.NOT_FOUND,
    offset: 36,
    table: 't',
    column: 'm',
    systemError: null,
    process: null,
  });
  assert.throws(() => database.run('DELETE FROM t\0 WHERE n = 1'),
    { code: Code.SYNTAX, offset: 13, table: null });
  assert.throws(() => database.run('SELECT * FROM nowhere'), VelmoraError);
});

withDatabase('results are freed', (database) => {
  database.run('CREATE TABLE t s string(10000)');
  for (let i = 0; i < 100; i += 1) database.run('INSERT INTO t s = ?', 'x'.repeat(10_000));
  const run = () => { // 400 MB of answers
    for (let i = 0; i < 400; i += 1) database.run('SELECT s FROM t');
  };
  run();
  const before = process.memoryUsage().rss;
  run();
  assert.ok(process.memoryUsage().rss - before < 200_000_000);
});

withDatabase('a statement is run with ever new values', (database) => {
  database.run('CREATE TABLE t n int s string');
  const insert = database.prepare('INSERT INTO t n = ? s = ?');
  assert.equal(insert.run(1, 'a').affected, 1);
  insert.run(2, null);
  const select = database.prepare('SELECT s FROM t WHERE n = ?');
  assert.deepEqual(select.run(1).rows, [{ s: 'a' }]);
  assert.deepEqual(select.run(2).rows, [{ s: null }]);
  const refusal = failure(Code.MISUSE, 'The command has places for 2 values, not 1');
  assert.throws(() => insert.run(1), refusal);
  assert.throws(() => insert.runMany([[3, 'c'], [4]]), refusal);
  assert.throws(() => database.prepare('SELEC'), { code: Code.SYNTAX, offset: 0 });
});

withDatabase('many rows of values are all or none', (database) => {
  database.run('CREATE TABLE t n int');
  const insert = database.prepare('INSERT INTO t n = ?');
  assert.equal(insert.runMany([[1], [2]]).affected, 2);
  assert.throws(() => insert.runMany([[3], ['d']]), { code: Code.WRONG_TYPE, column: 'n' });
  assert.deepEqual(database.run('SELECT n FROM t').rows, [{ n: 1 }, { n: 2 }]);
});

inDirectory('a statement ends when it is closed, and with its database', (directory) => {
  const database = open(directory);
  const statement = database.prepare('SHOW TABLES');
  const other = database.prepare('SHOW LINKS');
  statement.close();
  statement.close();
  assert.throws(() => statement.run(), failure(Code.MISUSE, 'The statement is closed'));
  database.close();
  assert.throws(() => other.run(), failure(Code.MISUSE, 'The statement is closed'));
});

withDatabase('a transaction is whole or not at all', (database) => {
  database.run('CREATE TABLE t n int');
  assert.equal(database.transaction(() => database.run('INSERT INTO t n = 1').affected), 1);
  assert.throws(() => database.transaction(() => {
    database.run('INSERT INTO t n = 2');
    throw new RangeError('of the program');
  }), { name: 'RangeError', message: 'of the program' });
  assert.throws(() => database.transaction(async () => {
    database.run('INSERT INTO t n = 3');
  }), { name: 'TypeError', message: 'A transaction cannot be awaited' });
  assert.throws(() => database.transaction(() => {
    database.run('ROLLBACK');
    throw new RangeError('of the program');
  }), { name: 'RangeError' });
  assert.deepEqual(database.run('SELECT n FROM t').rows, [{ n: 1 }]);
});

inDirectory('a database is open only between, and several can be', (directory) => {
  const [a, b] = ['a', 'b'].map((name) => open(path.join(directory, name)));
  a.run('CREATE TABLE t n int');
  assert.deepEqual(b.run('SHOW TABLES').rows, []);
  a.close();
  a.close();
  assert.throws(() => a.run('SHOW TABLES'), failure(Code.MISUSE, 'The database is closed'));
  b.close();
});

inDirectory('a directory in use is busy, for other threads too', async (directory) => {
  const database = open(directory);
  const busy = { code: Code.BUSY, process: process.pid };
  assert.throws(() => open(directory), busy);
  const worker = new Worker(program(`
    try {
      open(${JSON.stringify(directory)});
    } catch ({ code, process }) {
      require('node:worker_threads').parentPort.postMessage({ code, process });
    }`), { eval: true });
  const [message] = await once(worker, 'message');
  await once(worker, 'exit');
  assert.deepEqual(message, busy);
  database.run('CREATE TABLE t n int');
  database.close();
});

inDirectory('a process that ends or is killed without a close has lost nothing', (directory) => {
  const run = (lines) => runNode(directory, `const database = open('.');${lines}`);
  assert.equal(run("database.run('CREATE TABLE t n int');").status, 0);
  assert.equal(run("database.run('INSERT INTO t n = ?', 1);").status, 0);
  const killed = run("database.run('INSERT INTO t n = 2'); process.kill(process.pid, 'SIGKILL');");
  assert.equal(killed.signal, 'SIGKILL');
  const database = open(directory);
  assert.deepEqual(database.run('SELECT n FROM t').rows, [{ n: 1 }, { n: 2 }]);
  database.close();
});

inDirectory('a directory is made only if that is allowed', (directory) => {
  const place = path.join(directory, 'new');
  assert.throws(() => open(place, { create: false }), { code: Code.NOT_FOUND });
  assert.ok(!fs.existsSync(place));
  open(place, { exclusive: true }).close();
  assert.throws(() => open(place, { exclusive: true }), { code: Code.EXISTS });
  open(place, { create: false }).close();
  assert.throws(() => open(place, { durability: 'sometimes' }),
    { name: 'TypeError', message: 'No durability: sometimes' });
});

inDirectory('read only changes nothing', (directory) => {
  const writer = open(directory);
  writer.run('CREATE TABLE t n int');
  writer.close();
  const reader = open(directory, { readOnly: true });
  assert.deepEqual(reader.run('SELECT n FROM t').rows, []);
  assert.throws(() => reader.run('INSERT INTO t n = 1'), { code: Code.READ_ONLY });
  reader.close();
});

inDirectory('damaged files are refused and stay as they are', (directory) => {
  const database = open(directory);
  database.run('CREATE TABLE users id int name string');
  database.close();
  const table = path.join(directory, 'users.bin');
  fs.truncateSync(table, 52); // inside the columns' names
  assert.throws(() => open(directory), { code: Code.CORRUPT });
  assert.equal(fs.statSync(table).size, 52);
});

withDatabase('a checkpoint writes the tables, a backup is a database', (database, directory) => {
  database.run('CREATE TABLE t n int');
  database.checkpoint();
  assert.ok(fs.existsSync(path.join(directory, 't.bin')));
  const place = path.join(directory, 'copy');
  database.backup(place);
  assert.throws(() => database.backup(place), { code: Code.EXISTS });
  const copy = open(place);
  assert.deepEqual(copy.run('SHOW TABLES').rows, [{ table: 't', rows: 0 }]);
  copy.close();
});

inDirectory('a missing library is an error that names the variable', (directory) => {
  const run = runNode(directory, `
    try {
      open('.');
    } catch (error) {
      process.stdout.write(error.name + ': ' + error.message);
    }`, { VELMORA_LIBRARY: '/nowhere/libvelmora.so' });
  assert.match(run.stdout,
    /^VelmoraError: libvelmora cannot be loaded \(\/nowhere\/libvelmora.so: /);
  assert.match(run.stdout, /set the environment variable VELMORA_LIBRARY to its path$/);
});

test('the version is that of the library', () => {
  assert.equal(libraryVersion(), '0.1.0');
});
