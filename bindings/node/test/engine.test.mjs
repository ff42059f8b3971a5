// Tests of the package, over the real library: npm test, after npm ci.
//
// Each test has a directory of its own. What needs a process that ends is run in another one.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { test } from 'node:test';
import { Worker } from 'node:worker_threads';

import { Engine, VelmoraError, libraryVersion } from 'velmora';

const packageDirectory = path.dirname(createRequire(import.meta.url).resolve('velmora'));

// Clocks for timed values; the one ahead is beyond the 32 bits of bound integers.
const longAgo = ' #TIME# 1600000000';
const farAhead = ' #TIME# 4000000000';

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

function withEngine(name, run) {
  inDirectory(name, (directory) => {
    const engine = new Engine(directory).start();
    try {
      run(engine, directory);
    } finally {
      engine.stop();
    }
  });
}

const failure = (message) => ({ name: 'VelmoraError', message });

function stored(engine, column, value) {
  engine.query('DELETE FROM t');
  engine.query(`INSERT INTO t ${column} = ?`, value);
  return engine.query(`SELECT ${column} FROM t`).rows[0][column];
}

const program = (lines) =>
  `const { Engine } = require(${JSON.stringify(packageDirectory)});${lines}`;

function runNode(directory, lines, environment = {}) {
  return spawnSync(process.execPath, ['-e', program(lines)], {
    cwd: directory, encoding: 'utf8', env: { ...process.env, ...environment }, timeout: 60_000,
  });
}

withEngine('a command without rows has its message and the number of rows affected', (engine) => {
  engine.query('CREATE TABLE t n int');
  assert.deepEqual(engine.query('INSERT INTO t n = 1'),
    { rows: [], affected: 1, message: 'success!' });
  assert.deepEqual(engine.query('SELECT n FROM t WHERE n = 2'),
    { rows: [], affected: 0, message: '' });
});

withEngine('rows are objects of typed values, in order', (engine) => {
  engine.query('CREATE TABLE t id ApexInt n int s string x float b bool');
  engine.query("INSERT INTO t n = 3 s = 'lamp' x = 1.5 b = true");
  engine.query('INSERT INTO t x = 2.0');
  assert.deepEqual(engine.query('SELECT * FROM t'), {
    rows: [
      { id: 1, n: 3, s: 'lamp', x: 1.5, b: true },
      { id: 2, n: 0, s: null, x: 2, b: null },
    ],
    affected: 2,
    message: '',
  });
});

withEngine('a timed value has the state of now', (engine) => {
  engine.query('CREATE TABLE t name string b bool 2');
  engine.query(`INSERT INTO t name = ? b = ? --> ? @ ? d${longAgo}`, 'past', true, false, 30);
  engine.query(`INSERT INTO t name = ? b = ? --> ? @ ? d${farAhead}`, 'future', true, false, 30);
  assert.deepEqual(engine.query('SELECT * FROM t').rows,
    [{ name: 'past', b: false }, { name: 'future', b: true }]);
});

inDirectory('bytes that are not UTF-8 are replaced', (directory) => {
  // Such bytes come from hosts in other languages, and so into the log.
  fs.writeFileSync(path.join(directory, 'velmora.wal'), Buffer.concat([
    Buffer.from('CREATE TABLE t s string #TIME# 1600000000\nINSERT INTO t s = \'a'),
    Buffer.from([0xff, 0xc3]),
    Buffer.from('b\' #TIME# 1600000000\n'),
  ]));
  const engine = new Engine(directory).start();
  const { rows } = engine.query('SELECT s FROM t');
  engine.stop();
  assert.deepEqual(rows, [{ s: 'a\ufffd\ufffdb' }]);
});

withEngine('integers are bound as integers', (engine) => {
  engine.query('CREATE TABLE t n int b bool');
  for (const value of [0, 1, -1, 2 ** 31 - 1, -(2 ** 31)]) {
    assert.equal(stored(engine, 'n', value), value);
    assert.equal(stored(engine, 'n', BigInt(value)), value);
  }
  assert.throws(() => engine.query('INSERT INTO t b = ?', 1),
    failure('Error: Unmatching type to column'));
});

withEngine('other numbers are bound as floats', (engine) => {
  engine.query('CREATE TABLE t x float');
  for (const value of [0.5, -2.25, 1e-5, 123.456]) {
    assert.equal(stored(engine, 'x', value), value);
  }
  assert.equal(stored(engine, 'x', 10), 10);
});

withEngine('booleans are bound as bools', (engine) => {
  engine.query('CREATE TABLE t b bool n int');
  assert.equal(stored(engine, 'b', true), true);
  assert.equal(stored(engine, 'b', false), false);
  assert.throws(() => engine.query('INSERT INTO t n = ?', true),
    failure('Error: Unmatching type to column'));
});

withEngine('texts of any characters are bound', (engine) => {
  engine.query('CREATE TABLE t s string b bool');
  const texts = ['', 'plain', "O'Brien", 'say "hi"', 'a\\b\n\t\u0001/', '?', 'Zoë, 日本 🚦',
    "x' b = true s = 'y", '#TIME# 5', 'DROP TABLE t'];
  for (const text of texts) assert.equal(stored(engine, 's', text), text);
  assert.equal(stored(engine, 's', 'NULL'), null);
});

withEngine('a text in a filter finds only itself', (engine) => {
  engine.query('CREATE TABLE t s string');
  engine.query("INSERT INTO t s = 'a?'");
  engine.query('INSERT INTO t s = ?', "a' || s != '");
  assert.deepEqual(engine.query('SELECT s FROM t WHERE s = ?', "a' || s != '").rows,
    [{ s: "a' || s != '" }]);
});

withEngine('refusals name the parameter, and nothing is run', (engine) => {
  engine.query('CREATE TABLE t n int s string');
  const cases = [
    [2 ** 31, 'is an integer outside 32 bits'],
    [-(2 ** 31) - 1, 'is an integer outside 32 bits'],
    [1e300, 'is an integer outside 32 bits'],
    [2n ** 64n, 'is an integer outside 32 bits'],
    [-(2n ** 70n), 'is an integer outside 32 bits'],
    [NaN, 'is a float that is not finite'],
    [-Infinity, 'is a float that is not finite'],
    [1e-60, 'is a float that the engine cannot read back'],
    ['both \' and "', 'is a text with both kinds of quotes'],
    ['a\0b', 'is a text with a NUL'],
    ['now #TIME# 5', 'is a text with a clock marker and digits'],
  ];
  for (const [value, refusal] of cases) {
    assert.throws(() => engine.query('INSERT INTO t n = ? s = ?', 1, value),
      failure(`Error: Parameter 2 ${refusal}`));
  }
  assert.throws(() => engine.query('INSERT INTO t n = ?', 2.5),
    failure("Error: Parameter 1 is a float that int column 'n' cannot hold"));
  assert.throws(() => engine.query('INSERT INTO t n = ?'),
    failure('Error: Command has 1 placeholder for 0 values'));
  assert.throws(() => engine.query('INSERT INTO t n = 1', 1),
    failure('Error: Command has 0 placeholders for 1 value'));
  assert.equal(engine.query('SELECT * FROM t').affected, 0);
});

withEngine('values of other types, and texts that are none, are type errors', (engine) => {
  engine.query('CREATE TABLE t n int s string');
  for (const [value, name] of [[null, 'null'], [undefined, 'undefined'], [{}, 'object'],
    [[1], 'object'], [() => 1, 'function'], [Symbol('s'), 'symbol']]) {
    assert.throws(() => engine.query('INSERT INTO t n = ? s = ?', 1, value), {
      name: 'TypeError',
      message: `Parameter 2 is of type ${name}, not number, bigint, boolean or string`,
    });
  }
  const typeError = (message) => ({ name: 'TypeError', message });
  assert.throws(() => engine.query('INSERT INTO t s = ?', 'a\ud800'),
    typeError('Parameter 1 has a lone surrogate'));
  assert.throws(() => engine.query("INSERT INTO t s = '\udc00'"),
    typeError('Command has a lone surrogate'));
  assert.throws(() => engine.query('DELETE FROM t\0 WHERE n = 1'),
    typeError('Command has a NUL'));
  assert.throws(() => engine.query(5), typeError('Command is not a string'));
  assert.equal(engine.query('SELECT * FROM t').affected, 0);
});

withEngine("a failed command throws the engine's message", (engine) => {
  assert.throws(() => engine.query('SELECT * FROM nowhere'),
    failure("Error: Syntax Error: Table 'nowhere' does not exist."));
  assert.throws(() => engine.query('SELECT * FROM nowhere'), VelmoraError);
  engine.query('CREATE TABLE t n int');
  engine.query('INSERT INTO t n = 1');
  assert.throws(() => engine.query('SELECT n FROM t WHERE n > many'),
    failure("Error: Text cannot be read as a number: 'many' for table 't', column 'n'"));
  assert.deepEqual(engine.query('SELECT n FROM t').rows, [{ n: 1 }]);
});

withEngine('a message that quotes a text is whole', (engine) => {
  engine.query('CREATE TABLE parents name string');
  engine.query("INSERT INTO parents name = 'Ada'");
  engine.query('CREATE TABLE children parent string');
  engine.query('LINK children.parent --> parents.name');
  const text = 'say "hi", Zoë\n\\';
  assert.throws(() => engine.query('INSERT INTO children parent = ?', text),
    failure(`Error: Primary table is missing required future key: ${text}`));
});

withEngine('answers and messages are freed', (engine) => {
  engine.query('CREATE TABLE t s string');
  for (let i = 0; i < 100; i += 1) engine.query('INSERT INTO t s = ?', 'x'.repeat(10_000));
  const run = () => { // 400 MB of answers
    for (let i = 0; i < 400; i += 1) engine.query('SELECT s FROM t');
  };
  run();
  const before = process.memoryUsage().rss;
  run();
  assert.ok(process.memoryUsage().rss - before < 200_000_000);
});

inDirectory('an engine is started only between start and stop', (directory) => {
  const engine = new Engine(directory);
  const notStarted = failure('The engine is not started');
  assert.throws(() => engine.query('SELECT n FROM t'), notStarted);
  engine.stop();
  assert.equal(engine.start(), engine);
  engine.query('CREATE TABLE t n int');
  engine.stop();
  assert.throws(() => engine.query('SELECT n FROM t'), notStarted);
  engine.stop();
});

withEngine('there is one at a time', (engine, directory) => {
  const refusal = failure('The process has a started engine already');
  const other = new Engine(directory);
  assert.throws(() => engine.start(), refusal);
  assert.throws(() => other.start(), refusal);
  assert.throws(() => other.query('SELECT n FROM t'), failure('The engine is not started'));
  other.stop();
  engine.query('CREATE TABLE t n int');
});

inDirectory('another thread of the process cannot start a second', async (directory) => {
  const engine = new Engine(directory).start();
  const worker = new Worker(program(`
    try {
      new Engine().start();
    } catch (error) {
      require('node:worker_threads').parentPort.postMessage(error.message);
    }`), { eval: true });
  const [message] = await once(worker, 'message');
  await once(worker, 'exit');
  assert.equal(message, 'The process has a started engine already');
  engine.query('CREATE TABLE t n int');
  engine.stop();
});

inDirectory('a restart keeps everything', (directory) => {
  const engine = new Engine(directory).start();
  engine.query('CREATE TABLE t s string b bool 2');
  engine.query(`INSERT INTO t s = ? b = ? --> ? @ ? d${farAhead}`, "O'Brien", false, true, 1);
  engine.stop();
  engine.start();
  assert.deepEqual(engine.query('SELECT * FROM t').rows, [{ s: "O'Brien", b: false }]);
  engine.stop();
});

inDirectory('a stop that cannot save throws and leaves it started', (directory) => {
  const engine = new Engine(directory).start();
  engine.query('CREATE TABLE t id ApexInt n int');
  engine.query('INSERT INTO t n = 99999999999');
  assert.throws(() => engine.stop(),
    failure("Number is out of range: '99999999999' in table 't', column 'n', row 0"));
  engine.query('UPDATE t SET n = 0 WHERE id = 1');
  engine.stop();
});

inDirectory('a process that ends or is killed without a stop has lost nothing', (directory) => {
  const lines = `
    const engine = new Engine().start();
    engine.query('CREATE TABLE t n int');
    engine.query('INSERT INTO t n = ?', 1);`;
  assert.equal(runNode(directory, lines).status, 0);
  const engine = new Engine(directory).start();
  assert.deepEqual(engine.query('SELECT n FROM t').rows, [{ n: 1 }]);
  engine.stop();
  const run = runNode(directory, `
    const engine = new Engine().start();
    engine.query('INSERT INTO t n = ?', 2);
    process.kill(process.pid, 'SIGKILL');`);
  assert.equal(run.signal, 'SIGKILL');
  engine.start();
  assert.deepEqual(engine.query('SELECT n FROM t').rows, [{ n: 1 }, { n: 2 }]);
  engine.stop();
});

inDirectory('the current directory is left as it was', (directory) => {
  const before = process.cwd();
  const engine = new Engine(directory).start();
  assert.equal(process.cwd(), before);
  engine.query('CREATE TABLE t n int');
  engine.stop();
  assert.ok(fs.existsSync(path.join(directory, 't.bin')));
  assert.throws(() => new Engine(path.join(directory, 'missing')).start(), { code: 'ENOENT' });
  assert.equal(process.cwd(), before);
});

inDirectory('a directory in use is an error', async (directory) => {
  const holder = spawn(process.execPath, ['-e', program(`
    const engine = new Engine().start();
    process.stdout.write('started');
    process.stdin.on('end', () => engine.stop()).resume();`)], { cwd: directory });
  await once(holder.stdout, 'data');
  const engine = new Engine(directory);
  assert.throws(() => engine.start(), failure('Database directory is already in use'));
  holder.stdin.end();
  assert.deepEqual(await once(holder, 'exit'), [0, null]);
  engine.start();
  engine.stop();
});

inDirectory('files that cannot be loaded are an error and stay as they are', (directory) => {
  const engine = new Engine(directory).start();
  engine.query('CREATE TABLE users id int name string');
  engine.stop();
  const table = path.join(directory, 'users.bin');
  fs.truncateSync(table, 52); // inside the columns' names
  assert.throws(() => engine.start(), failure('Corrupt table file: users.bin'));
  assert.equal(fs.statSync(table).size, 52);
});

inDirectory('a missing library is an error that names the variable', (directory) => {
  const run = runNode(directory, `
    try {
      new Engine().start();
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
