// Databases: opening, options, transactions, callbacks, upkeep, errors.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { test } from 'node:test';

import {
  BusyError, ConstraintError, InterruptedError, VelmoraError, check, open, version,
} from 'velmora';

import { inDirectory, killedNode, refusal, runNode, withDatabase } from './support.mjs';

withDatabase('an error says where and of what', (database) => {
  database.exec('CREATE TABLE t s string');
  assert.throws(() => database.get("SELECT s FROM t WHERE s = 'Zoë' && m = 1"), {
    name: 'VelmoraError',
    message: "Unknown column 'm'",
    code: 'VELMORA_NOT_FOUND',
    number: 4,
    offset: 36,
    table: 't',
    column: 'm',
    system: null,
    process: null,
  });
  assert.throws(() => database.exec('DELETE FROM t\0 WHERE n = 1'),
    { code: 'VELMORA_SYNTAX', number: 11, offset: 13, table: null });
  assert.throws(() => database.all('SELECT * FROM nowhere'), VelmoraError);
});

withDatabase('what the tables\' rules forbid is a constraint error', (database) => {
  database.exec('CREATE TABLE parents id ApexInt name string');
  database.exec('CREATE TABLE children parent int');
  database.exec('LINK children.parent --> parents.id');
  database.run('INSERT INTO parents name = ?', 'a');
  database.run('INSERT INTO children parent = ?', 1);
  for (const [text, code] of [
    ['INSERT INTO children parent = 9', 'VELMORA_MISSING_PARENT'],
    ['DELETE FROM parents WHERE id = 1', 'VELMORA_RESTRICTED']]) {
    assert.throws(() => database.exec(text), (error) => {
      assert.ok(error instanceof ConstraintError && error instanceof VelmoraError);
      assert.deepEqual([error.name, error.code], ['ConstraintError', code]);
      return true;
    });
  }
});

inDirectory('a database is open only between, and several can be', (directory) => {
  const [a, b] = ['a', 'b'].map((name) => open(path.join(directory, name)));
  a.exec('CREATE TABLE t n int');
  assert.deepEqual(b.all('SHOW TABLES'), []);
  assert.deepEqual([a.isOpen, a.path], [true, path.join(directory, 'a')]);
  a.close();
  a.close();
  assert.deepEqual([a.isOpen, a.inTransaction], [false, false]);
  const closed = refusal('MISUSE', 'The database is closed');
  for (const call of [() => a.all('SHOW TABLES'), () => a.prepare('SHOW TABLES'),
    () => a.checkpoint(), () => a.backup('x'), () => a.exec(['SHOW TABLES']),
    () => a.transaction(() => 1)()]) {
    assert.throws(call, closed);
  }
  a.interrupt();
  b.close();
});

inDirectory('a directory in use is busy, and the error says by whom', (directory) => {
  const database = open(directory);
  assert.throws(() => open(directory), (error) => {
    assert.ok(error instanceof BusyError);
    assert.deepEqual([error.code, error.process], ['VELMORA_BUSY', process.pid]);
    return true;
  });
  database.exec('CREATE TABLE t n int');
  database.close();
});

inDirectory('a directory is made only if that is allowed', (directory) => {
  const place = path.join(directory, 'new');
  assert.throws(() => open(place, { create: false }), { code: 'VELMORA_NOT_FOUND' });
  assert.ok(!fs.existsSync(place));
  open(place, { exclusive: true }).close();
  assert.throws(() => open(place, { exclusive: true }), { code: 'VELMORA_EXISTS' });
  open(place, { create: false }).close();
});

test('options that there are not are refused', () => {
  for (const [options, message] of [
    [{ durability: 'sometimes' }, 'No durability: sometimes'],
    [{ readonly: true }, 'No option: readonly'],
    [{ openWait: -1 }, 'openWait is no number of milliseconds'],
    [{ transactionWait: '5' }, 'transactionWait is no number of milliseconds'],
    [{ log: 'x' }, 'log is no function']]) {
    assert.throws(() => open('never', options), { name: 'TypeError', message });
  }
  assert.throws(() => open(''), refusal('MISUSE', 'Path is empty'));
  assert.throws(() => open(5), { name: 'TypeError', message: 'The path is not a string' });
  assert.throws(() => open('a', { readOnly: true, create: true }), { code: 'VELMORA_MISUSE' });
  assert.ok(!fs.existsSync('never'));
});

inDirectory('read only changes nothing', (directory) => {
  const writer = open(directory);
  writer.exec('CREATE TABLE t n int');
  writer.close();
  const reader = open(directory, { readOnly: true });
  assert.deepEqual(reader.all('SELECT n FROM t'), []);
  assert.throws(() => reader.exec('INSERT INTO t n = 1'), { code: 'VELMORA_READ_ONLY' });
  reader.close();
});

inDirectory('damage is refused, checked, and repaired with what is lost told', (directory) => {
  const database = open(directory);
  database.exec('CREATE TABLE users id int name string');
  database.close();
  assert.deepEqual(check(directory), []);
  const table = path.join(directory, 'users.bin');
  fs.truncateSync(table, 52); // inside the columns' names
  assert.throws(() => open(directory), { code: 'VELMORA_CORRUPT' });
  assert.equal(fs.statSync(table).size, 52);
  const [fault] = check(directory);
  assert.equal(fault.file, 'users.bin');
  assert.equal(typeof fault.meaning, 'string');
  assert.throws(() => check(path.join(directory, 'none')), { code: 'VELMORA_NOT_FOUND' });
  const lines = [];
  open(directory, { repair: true, log: (level, line) => lines.push([level, line]) }).close();
  assert.ok(lines.some(([level, line]) => level !== 'information' && line.includes('users')));
});

withDatabase('a transaction is whole or not at all', (database) => {
  database.exec('CREATE TABLE t n int');
  const insert = database.transaction((n, fails) => {
    assert.ok(database.inTransaction);
    const { changes } = database.run('INSERT INTO t n = ?', n);
    if (fails) throw new RangeError('of the program');
    return changes;
  });
  assert.equal(insert(1), 1);
  assert.throws(() => insert(2, true), { name: 'RangeError', message: 'of the program' });
  assert.ok(!database.inTransaction);
  assert.throws(() => database.transaction(async () => {
    database.exec('INSERT INTO t n = 3');
  })(), { name: 'TypeError', message: 'The function of a transaction gives a promise; '
    + 'transactionAsync is for these' });
  assert.throws(() => database.transaction(() => {
    database.exec('ROLLBACK');
    throw new RangeError('of the program');
  })(), { name: 'RangeError' });
  assert.throws(() => database.transaction('BEGIN'), TypeError);
  assert.deepEqual(database.all('SELECT n FROM t'), [{ n: 1 }]);
});

withDatabase('a transaction within another is part of it', (database) => {
  database.exec('CREATE TABLE t n int');
  const insert = database.transaction((n) => {
    database.run('INSERT INTO t n = ?', n);
    if (n < 0) throw new RangeError('of the program');
  });
  database.transaction(() => {
    insert(1);
    insert(2);
  })();
  assert.throws(database.transaction(() => {
    insert(3);
    assert.throws(() => insert(-1), RangeError);
  }), refusal('TRANSACTION', 'A transaction within this one has failed'));
  assert.deepEqual(database.prepare('SELECT n FROM t').pluck().all(), [1, 2]);
  insert(4);
  assert.equal(database.all('SELECT n FROM t').length, 3);
});

withDatabase('several commands are one transaction', (database) => {
  database.exec(['CREATE TABLE t n int s string', ['INSERT INTO t n = ? s = ?', 1, 'ü'],
    "INSERT INTO t s = 'b'"]);
  assert.deepEqual(database.prepare('SELECT * FROM t').raw().all(), [[1, 'ü'], [null, 'b']]);
  assert.throws(() => database.exec(['DELETE FROM t', ['INSERT INTO t n = ?', 'x']]),
    { code: 'VELMORA_WRONG_TYPE', column: 'n', offset: 18 });
  assert.equal(database.all('SELECT * FROM t').length, 2);
  assert.equal(database.exec([]), database);
});

inDirectory('the clock is the program\'s', (directory) => {
  let now = 1_000;
  const database = open(directory, { clock: () => now });
  database.exec('CREATE TABLE t colour string 2');
  database.run('INSERT INTO t colour = ? --> ? @ 30 s', 'red', 'green');
  const rows = database.all('SELECT colour FROM t');
  assert.deepEqual([rows[0].colour, rows.changesAt], ['red', 1_030]);
  now = 1_030;
  assert.deepEqual(database.all('SELECT colour FROM t'), [{ colour: 'green' }]);
  database.close();
});

inDirectory('what a clock throws leaves the call, which has changed nothing', (directory) => {
  let fails = false;
  const database = open(directory, {
    clock() {
      if (fails === 'text') return 'noon';
      if (fails) throw new RangeError('no time');
      return 1_000;
    },
  });
  database.exec('CREATE TABLE t n int');
  fails = true;
  assert.throws(() => database.exec('INSERT INTO t n = 1'),
    { name: 'RangeError', message: 'no time' });
  fails = 'text';
  assert.throws(() => database.exec('INSERT INTO t n = 1'),
    { name: 'TypeError', message: 'The clock gives no number' });
  fails = false;
  assert.deepEqual(database.all('SELECT n FROM t'), []);
  database.close();
});

inDirectory('a database refuses the calls of its own callbacks', (directory) => {
  let attempt = null;
  const refused = [];
  const database = open(directory, {
    clock() {
      if (attempt !== null) {
        try {
          attempt();
        } catch ({ message }) {
          refused.push(message);
        }
      }
      return 1_000;
    },
  });
  database.exec('CREATE TABLE t n int');
  const statement = database.prepare('SELECT n FROM t');
  for (attempt of [() => statement.all(), () => database.close(), () => statement.finalize(),
    () => database.checkpoint(), () => database.prepare('SHOW TABLES')]) {
    assert.deepEqual(database.all('SELECT n FROM t'), []);
  }
  attempt = null;
  assert.deepEqual(new Set(refused), new Set(['The database is called from its own callback']));
  assert.ok(refused.length >= 5);
  database.close();
});

inDirectory('progress is told, and stops what it is told of', (directory) => {
  const told = new Set();
  let stops = false;
  const database = open(directory, {
    durability: 'off',
    progress(what, done, total) {
      assert.ok(done <= total);
      told.add(what);
      if (stops === 'throw') throw new RangeError('enough');
      return !stops;
    },
  });
  database.exec('CREATE TABLE t n int s string');
  const rows = Array.from({ length: 50_000 }, (_, i) => [i, `text ${i}`]);
  database.runMany('INSERT INTO t n = ? s = ?', rows);
  database.checkpoint();
  assert.ok(told.has('checkpoint'));
  stops = true;
  const copy = path.join(directory, 'copy');
  assert.throws(() => database.backup(copy), (error) => {
    assert.ok(error instanceof InterruptedError);
    assert.equal(error.code, 'VELMORA_INTERRUPTED');
    return true;
  });
  stops = 'throw';
  assert.throws(() => database.backup(copy), { name: 'RangeError', message: 'enough' });
  stops = false;
  database.backup(copy);
  assert.throws(() => database.backup(copy), { code: 'VELMORA_EXISTS' });
  database.close();
  const copied = open(copy, { progress: (what) => { told.add(what); } });
  assert.deepEqual(copied.all('SHOW TABLES'), [{ table: 't', rows: 50_000 }]);
  copied.close();
});

inDirectory('a log that throws is the process\'s affair, not the command\'s', (directory) => {
  const database = open(directory);
  database.exec('CREATE TABLE users id int name string');
  database.close();
  fs.truncateSync(path.join(directory, 'users.bin'), 52);
  const { stdout, stderr } = runNode(directory, `
    process.on('uncaughtException', ({ message }) => console.log('uncaught', message));
    const database = velmora.open('.', {
      repair: true, log() { throw new RangeError('of the log'); },
    });
    console.log(database.all('SHOW TABLES').length);`);
  assert.equal(stderr, '');
  assert.match(stdout, /^(uncaught of the log\n)+\d+\n$/);
});

inDirectory('a process that ends or is killed has lost nothing', async (directory) => {
  const run = (lines) => runNode(directory, `const database = velmora.open('.');${lines}`);
  assert.equal(run("database.exec('CREATE TABLE t n int');").status, 0);
  assert.equal(run("database.run('INSERT INTO t n = ?', 1); process.exit(7);").status, 7);
  const line = await killedNode(directory, `
    const database = velmora.open('.');
    database.exec('INSERT INTO t n = 2');
    database.transaction(() => database.exec('INSERT INTO t n = 3'))();
    database.runAsync('INSERT INTO t n = 4').then(() => {
      database.exec('BEGIN');
      database.exec('INSERT INTO t n = 5');
      console.log('committed');
      setInterval(() => {}, 1_000);
    });`);
  assert.equal(line, 'committed\n');
  const database = open(directory);
  assert.deepEqual(database.prepare('SELECT n FROM t').pluck().all(), [1, 2, 3, 4]);
  database.close();
});

withDatabase('results and statements are freed', async (database) => {
  database.exec('CREATE TABLE t n int s string(1000)');
  const rows = Array.from({ length: 10_000 }, (_, i) => [i, 'x'.repeat(60)]);
  database.runMany('INSERT INTO t n = ? s = ?', rows);
  const select = 'SELECT n, s FROM t';
  const run = async () => { // each of them some 400 MB of answers
    for (let i = 0; i < 400; i += 1) {
      database.prepare(select).all();
      database.read(select).close();
      for (const { n } of database.iterate(select)) if (n === 5_000) break;
    }
    for (let i = 0; i < 400; i += 1) {
      assert.equal(database.read(select).column(0).values.length, 10_000);
      await new Promise(setImmediate);
    }
  };
  await run();
  const before = process.memoryUsage().rss;
  await run();
  assert.ok(process.memoryUsage().rss - before < 200_000_000);
});

test('the version is that of the library', () => {
  assert.equal(version, '0.1.0');
});
