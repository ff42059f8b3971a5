// Statements, their rows, and results.
import assert from 'node:assert/strict';

import { Result, open } from 'velmora';

import { inDirectory, refusal, runNode, withDatabase } from './support.mjs';

withDatabase('rows are objects of typed values, in order', (database) => {
  database.exec('CREATE TABLE t id ApexInt l long s string x float b bool');
  assert.deepEqual(database.run("INSERT INTO t l = 3 s = 'lamp' x = 1.5 b = true"),
    { changes: 1, lastInsertRowid: 1 });
  database.run('INSERT INTO t l = ? x = 2', 2n ** 60n);
  assert.deepEqual(database.all('SELECT * FROM t'), [
    { id: 1, l: 3, s: 'lamp', x: 1.5, b: true },
    { id: 2, l: 2n ** 60n, s: null, x: 2, b: null },
  ]);
  assert.deepEqual(Object.keys(database.get('SELECT s, id FROM t')), ['s', 'id']);
});

withDatabase('a change says how many rows, and which number a new one has', (database) => {
  assert.deepEqual(database.run('CREATE TABLE t id ApexInt n int'),
    { changes: 0, lastInsertRowid: null });
  assert.deepEqual(database.run('INSERT INTO t n = 1'), { changes: 1, lastInsertRowid: 1 });
  database.exec('INSERT INTO t n = 1');
  assert.deepEqual(database.run('UPDATE t SET n = 2'), { changes: 2, lastInsertRowid: null });
  assert.deepEqual(database.run('DELETE FROM t WHERE n = 1'),
    { changes: 0, lastInsertRowid: null });
});

withDatabase('get gives the first row or undefined', (database) => {
  database.exec('CREATE TABLE t n int');
  const select = database.prepare('SELECT n FROM t');
  assert.equal(select.get(), undefined);
  database.runMany('INSERT INTO t n = ?', Array.from({ length: 5_000 }, (_, i) => [i]));
  assert.deepEqual(select.get(), { n: 0 });
  assert.equal(select.all().length, 5_000);
});

withDatabase('a large answer comes whole', (database) => {
  database.exec('CREATE TABLE t n int s string(2000) x double');
  const rows = Array.from({ length: 20_000 },
    (_, i) => [i, (i % 100 === 0 ? 'ü' : 'u').repeat(i % 1_000), i / 8]);
  database.runMany('INSERT INTO t n = ? s = ? x = ?', rows);
  assert.deepEqual(database.prepare('SELECT * FROM t').raw().all(), rows);
  assert.deepEqual([...database.prepare('SELECT * FROM t').raw().iterate()], rows);
  assert.deepEqual(database.read('SELECT n FROM t').rows.map(({ n }) => n), rows.map(([n]) => n));
});

withDatabase('rows come as arrays, or as their first values', (database) => {
  database.exec('CREATE TABLE t n int s string');
  database.runMany('INSERT INTO t n = ? s = ?', [[1, 'a'], [2, 'b']]);
  const select = database.prepare('SELECT n, s FROM t');
  assert.deepEqual(select.raw().all(), [[1, 'a'], [2, 'b']]);
  assert.deepEqual(select.pluck().all(), [1, 2]);
  assert.equal(select.get(), 1);
  assert.deepEqual(select.pluck(false).all(), [{ n: 1, s: 'a' }, { n: 2, s: 'b' }]);
});

withDatabase('iterating is of the answer as it was', (database) => {
  database.exec('CREATE TABLE t n int');
  database.runMany('INSERT INTO t n = ?', [[1], [2], [3]]);
  const seen = [];
  for (const { n } of database.iterate('SELECT n FROM t WHERE n < ?', 3)) {
    seen.push(n);
    database.exec('DELETE FROM t');
  }
  assert.deepEqual(seen, [1, 2]);
});

withDatabase('a statement says what its columns are', (database) => {
  database.exec('CREATE TABLE t n int s string x double b bool');
  const columns = [
    { name: 'n', type: 'int', valueType: 'integer' },
    { name: 's', type: 'string', valueType: 'text' },
    { name: 'x', type: 'double', valueType: 'real' },
    { name: 'b', type: 'bool', valueType: 'boolean' }];
  assert.deepEqual(database.prepare('SELECT * FROM t WHERE n = ?').columns(), columns);
  assert.deepEqual(database.read('SELECT * FROM t').columns, columns);
  assert.deepEqual(database.prepare('SELECT COUNT(*) FROM t').columns(),
    [{ name: 'COUNT(*)', type: null, valueType: 'integer' }]);
});

withDatabase('a statement tells what it is for', (database) => {
  database.exec('CREATE TABLE t n int');
  const select = database.prepare('SELECT n FROM t WHERE n = ?');
  assert.deepEqual([select.reader, select.parameters, select.source],
    [true, 1, 'SELECT n FROM t WHERE n = ?']);
  assert.throws(() => select.run(1), { name: 'TypeError',
    message: 'This statement returns data. Use get(), all(), or iterate() instead' });
  const insert = database.prepare('INSERT INTO t n = 1');
  for (const call of ['all', 'get', 'iterate', 'columns']) {
    assert.throws(() => insert[call](), { name: 'TypeError',
      message: 'This statement does not return data. Use run() instead' });
  }
  assert.ok(!insert.reader);
  assert.throws(() => database.prepare('SELEC'), { code: 'VELMORA_SYNTAX', offset: 0 });
});

withDatabase('a statement sees tables come and go', (database) => {
  database.exec('CREATE TABLE t n int');
  database.exec('INSERT INTO t n = 1');
  const select = database.prepare('SELECT * FROM t');
  assert.deepEqual(select.all(), [{ n: 1 }]);
  database.exec('DROP TABLE t');
  assert.throws(() => select.all(), { code: 'VELMORA_NOT_FOUND', message: "Unknown table 't'" });
  database.exec('CREATE TABLE t s string m int');
  database.exec("INSERT INTO t s = 'a' m = 2");
  assert.deepEqual(select.all(), [{ s: 'a', m: 2 }]);
  assert.deepEqual(select.columns().map(({ name }) => name), ['s', 'm']);
});

withDatabase('columns may be called as an object\'s own members', (database) => {
  database.exec('CREATE TABLE t __proto__ int constructor string toString bool');
  database.exec("INSERT INTO t __proto__ = 5 constructor = 'c' toString = true");
  const row = database.get('SELECT * FROM t');
  assert.deepEqual(Object.entries(row), [['__proto__', 5], ['constructor', 'c'],
    ['toString', true]]);
  assert.equal(Object.getPrototypeOf(row), Object.prototype);
});

withDatabase('an answer knows when it changes by itself', (database) => {
  database.exec('CREATE TABLE t name string b bool 2');
  const insert = database.prepare('INSERT INTO t name = ? b = ? --> ? @ ? d #TIME# ?');
  insert.run('past', true, false, 30, 1_600_000_000);
  insert.run('future', true, false, 30, 4_000_000_000);
  const second = 4_000_000_000 + 30 * 86_400;
  const rows = database.all('SELECT * FROM t');
  assert.deepEqual(rows, [{ name: 'past', b: false }, { name: 'future', b: true }]);
  assert.equal(rows.changesAt, second);
  assert.equal(database.all("SELECT b FROM t WHERE name = 'past'").changesAt, null);

  const result = database.read('SELECT * FROM t');
  assert.ok(result instanceof Result);
  assert.equal(result.changesAt, second);
  assert.equal(result.rows.changesAt, second);
  assert.deepEqual(result.timed(0, 'b'), { cycles: false, changesAt: null, next: null });
  assert.deepEqual(result.timed(1, 1), { cycles: false, changesAt: second, next: false });
  assert.equal(result.timed(1, 'name'), null);
  assert.throws(() => result.timed(0, 'c'),
    { name: 'RangeError', message: 'There is no column c' });
  const later = database.all('SELECT name, b FROM t AT ?', second);
  assert.deepEqual(later[1], { name: 'future', b: false });
});

withDatabase('cycling numbers have their next states as numbers', (database) => {
  database.exec('CREATE TABLE t n long 2');
  database.run('INSERT INTO t n = ? --> ? @ 30 s c', 1, 2);
  database.run('INSERT INTO t n = ? --> ? @ 30 s', 1, 2n ** 60n);
  const result = database.read('SELECT n FROM t');
  assert.deepEqual([result.timed(0, 0).cycles, result.timed(0, 0).next], [true, 2]);
  assert.equal(result.timed(1, 0).next, 2n ** 60n);
});

withDatabase('a result has all that there is to know', (database) => {
  const made = database.read('CREATE TABLE t id ApexInt n int');
  assert.deepEqual({ ...made },
    { message: '', length: 0, changes: 0, lastInsertRowid: null, changesAt: null });
  assert.deepEqual([made.rows, made.columns, made.first], [[], [], undefined]);
  assert.equal(database.read('INSERT INTO t n = ?', 5).lastInsertRowid, 1);
  const result = database.read('SELECT * FROM t');
  database.exec('DROP TABLE t');
  assert.deepEqual([result.length, result.rows, [...result], result.first],
    [1, [{ id: 1, n: 5 }], [{ id: 1, n: 5 }], { id: 1, n: 5 }]);
  assert.equal(result.rows, result.rows);
  result.close();
  result.close();
  assert.deepEqual(result.rows, [{ id: 1, n: 5 }]);
  for (const call of [() => result.first, () => [...result], () => result.timed(0, 0),
    () => result.column('n')]) {
    assert.throws(call, refusal('MISUSE', 'The result is closed'));
  }
});

withDatabase('columns come as arrays', (database) => {
  database.exec('CREATE TABLE t l long x double b bool s string');
  const rows = [[2n ** 60n, 1.5, true, 'Zoë'], [null, null, null, null], [-3n, 0.1, false, '']];
  database.runMany('INSERT INTO t l = ? x = ? b = ? s = ?', rows);
  const result = database.read('SELECT * FROM t');
  const { l, x, b, s } = result.arrays();
  assert.deepEqual(l.values, BigInt64Array.of(2n ** 60n, 0n, -3n));
  assert.deepEqual(l.nulls, Uint8Array.of(0, 1, 0));
  assert.deepEqual(x.values, Float64Array.of(1.5, 0, 0.1));
  assert.deepEqual(b.values, Uint8Array.of(1, 0, 0));
  assert.equal(s.values, null);
  assert.deepEqual([s.texts.toString(), s.ends], ['Zoë', BigUint64Array.of(4n, 4n, 4n)]);
  assert.deepEqual([0, 1, 2].map((row) => [l.at(row), x.at(row), b.at(row), s.at(row)]), rows);
  assert.deepEqual([l.at(3), s.at(3), b.at(3)], [undefined, undefined, undefined]);
  assert.equal(result.column('l'), result.column(0));
  assert.equal(database.read('SELECT l FROM t WHERE l = 2').column(0).values.length, 0);
  assert.equal(database.read('SELECT l FROM t WHERE b = true').column('l').nulls, null);
});

inDirectory('arrays outlive their result and the database', (directory) => {
  const { status, stderr, stdout } = runNode(directory, `
    let database = velmora.open('.', { durability: 'off' });
    database.exec('CREATE TABLE t l long');
    database.runMany('INSERT INTO t l = ?', Array.from({ length: 100_000 }, (_, i) => [i]));
    const { values } = database.read('SELECT l FROM t').column('l');
    database.close();
    database = null;
    global.gc();
    setImmediate(() => {
      global.gc();
      console.log(values.reduce((sum, value) => sum + value, 0n));
    });`, '--expose-gc');
  assert.deepEqual([status, stderr, stdout], [0, '', '4999950000n\n']);
});

inDirectory('rows are the same where no code may be made from strings', (directory) => {
  const { stdout, stderr } = runNode(directory, `
    const database = velmora.open('.', { durability: 'off' });
    database.exec('CREATE TABLE t __proto__ int s string b bool x double l long');
    const insert = database.prepare('INSERT INTO t __proto__ = ? s = ? b = ? x = ? l = ?');
    insert.run(1, 'Zoë', true, 0.5, 2n ** 60n);
    insert.run(null, null, null, null, null);
    const select = database.prepare('SELECT * FROM t');
    console.log(select.all(), select.raw().all(), select.pluck().all());`,
  '--disallow-code-generation-from-strings');
  assert.equal(stderr, '');
  assert.equal(stdout, `[
  {
    ['__proto__']: 1,
    s: 'Zoë',
    b: true,
    x: 0.5,
    l: 1152921504606846976n
  },
  { ['__proto__']: null, s: null, b: null, x: null, l: null }
] [
  [ 1, 'Zoë', true, 0.5, 1152921504606846976n ],
  [ null, null, null, null, null ]
] [ 1, null ]
`);
});

withDatabase('more texts than are kept prepared', (database) => {
  database.exec('CREATE TABLE t n int');
  for (let i = 0; i < 300; i += 1) database.run(`INSERT INTO t n = ${i}`);
  assert.equal(database.all('SELECT n FROM t').length, 300);
});

inDirectory('a statement ends when it is finalised, and with its database', (directory) => {
  const database = open(directory);
  const statement = database.prepare('SHOW TABLES');
  const other = database.prepare('SHOW LINKS');
  statement.finalize();
  statement.finalize();
  assert.throws(() => statement.all(), refusal('MISUSE', 'The statement is closed'));
  database.close();
  assert.throws(() => other.all(), refusal('MISUSE', 'The database is closed'));
  other.finalize();
});
