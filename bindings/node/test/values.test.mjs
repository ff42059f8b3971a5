// Values on their way in and out.
import assert from 'node:assert/strict';

import { VelmoraError } from 'velmora';

import { refusal, withDatabase } from './support.mjs';

function stored(database, column, value) {
  database.exec('DELETE FROM t');
  database.run(`INSERT INTO t ${column} = ?`, value);
  return database.get(`SELECT ${column} FROM t`)[column];
}

withDatabase('whole numbers are bound as integers', (database) => {
  database.exec('CREATE TABLE t n int l long b bool');
  for (const value of [0, 1, -1, 2 ** 31 - 1, -(2 ** 31)]) {
    assert.equal(stored(database, 'n', value), value);
    assert.equal(stored(database, 'n', BigInt(value)), value);
  }
  assert.throws(() => database.run('INSERT INTO t b = ?', 1), {
    code: 'VELMORA_WRONG_TYPE', message: "1 is no value for column 'b' of table 't', which is bool",
  });
});

withDatabase('an integer beyond 53 bits comes as a bigint, with all its digits', (database) => {
  database.exec('CREATE TABLE t l long');
  for (const value of [Number.MAX_SAFE_INTEGER, Number.MIN_SAFE_INTEGER]) {
    assert.equal(stored(database, 'l', value), value);
  }
  for (const value of [2n ** 53n, -(2n ** 53n), 2n ** 63n - 1n, -(2n ** 63n)]) {
    assert.equal(stored(database, 'l', value), value);
  }
});

withDatabase('safe integers are always bigints', (database) => {
  database.exec('CREATE TABLE t id ApexInt n int x double');
  const insert = database.prepare('INSERT INTO t n = ? x = ?');
  assert.deepEqual(insert.safeIntegers().run(5, 1), { changes: 1, lastInsertRowid: 1n });
  assert.deepEqual(insert.safeIntegers(false).run(null, 2), { changes: 1, lastInsertRowid: 2 });
  const select = database.prepare('SELECT * FROM t');
  assert.deepEqual(select.safeIntegers().all(), [
    { id: 1n, n: 5n, x: 1 }, { id: 2n, n: null, x: 2 }]);
  assert.deepEqual(select.safeIntegers(false).get(), { id: 1, n: 5, x: 1 });
  database.defaultSafeIntegers();
  assert.deepEqual(database.prepare('SELECT n FROM t').get(), { n: 5n });
  assert.deepEqual(database.defaultSafeIntegers(false).prepare('SELECT n FROM t').get(), { n: 5 });
});

withDatabase('other numbers are bound as floats', (database) => {
  database.exec('CREATE TABLE t x float d double');
  for (const value of [0.5, -2.25, 2 ** 100]) assert.equal(stored(database, 'x', value), value);
  for (const value of [0.1, 1e300, 10, 5e-324]) assert.equal(stored(database, 'd', value), value);
});

withDatabase('booleans and null are bound as such', (database) => {
  database.exec('CREATE TABLE t b bool n int');
  for (const value of [true, false, null]) assert.equal(stored(database, 'b', value), value);
  assert.equal(stored(database, 'n', null), null);
});

withDatabase('texts of any characters come back as they were', (database) => {
  database.exec('CREATE TABLE t s string(65535) b bool');
  const texts = ['', 'plain', "O'Brien", 'both \' and "', 'a\\b\n\t\u0001/', '?', '#/#?',
    ' #TIME# ', '@ 5 s', '-->',
    'Zoë, 日本 🚦', '\u{10ffff}\ufffd\ufeff\u00ff', "x' b = true s = 'y", 'now #TIME# 5',
    'DROP TABLE t', 'NULL', 'x'.repeat(65_535), 'ü'.repeat(30_000), '🚦'.repeat(16_000)];
  for (const text of texts) assert.equal(stored(database, 's', text), text);
});

withDatabase('texts of one row and of several keep apart', (database) => {
  database.exec('CREATE TABLE t a string b string c string');
  const rows = [['a', '', null], ['ü', 'b', '🚦'], [null, 'x', 'yz'], ['', '', '']];
  const insert = database.prepare('INSERT INTO t a = ? b = ? c = ?');
  for (const row of rows) insert.run(...row);
  const select = database.prepare('SELECT * FROM t').raw();
  assert.deepEqual(select.all(), rows);
  const one = database.prepare('SELECT a, b, c FROM t WHERE b = ?').raw();
  assert.deepEqual(one.get('x'), [null, 'x', 'yz']);
  assert.deepEqual(one.get('b'), ['ü', 'b', '🚦']);
});

withDatabase('a text in a filter finds only itself', (database) => {
  database.exec('CREATE TABLE t s string');
  database.exec("INSERT INTO t s = 'a?'");
  database.run('INSERT INTO t s = ?', "a' || s != '");
  assert.deepEqual(database.all('SELECT s FROM t WHERE s = ?', "a' || s != '"),
    [{ s: "a' || s != '" }]);
});

withDatabase('what does not fit is refused, and nothing is run', (database) => {
  database.exec('CREATE TABLE t n int s string b bool');
  const cases = [
    ['n', 2 ** 31, "2147483648 is out of range for column 'n' of table 't', which is int"],
    ['n', 2n ** 63n, 'Value 2 is an integer outside 64 bits'],
    ['n', NaN, 'Value 2 is not finite'],
    ['s', 'a\0b', 'Value 2 has a zero byte'],
  ];
  for (const [column, value, message] of cases) {
    assert.throws(() => database.run(`INSERT INTO t b = ? ${column} = ?`, true, value),
      { code: 'VELMORA_RANGE', message });
  }
  assert.throws(() => database.run('INSERT INTO t n = ?'),
    refusal('MISUSE', 'The command has places for 1 values, not 0'));
  assert.throws(() => database.run('INSERT INTO t n = 1', 1),
    refusal('MISUSE', 'The command has places for 0 values, not 1'));
  assert.deepEqual(database.all('SELECT * FROM t'), []);
});

withDatabase('values of other types, and texts that are none, are type errors', (database) => {
  database.exec('CREATE TABLE t n int s string');
  const typeError = (message) => ({ name: 'TypeError', message });
  for (const [value, name] of [[undefined, 'undefined'], [{}, 'object'], [[1], 'object'],
    [() => 1, 'function'], [Symbol('s'), 'symbol']]) {
    assert.throws(() => database.run('INSERT INTO t n = ? s = ?', 1, value), typeError(
      `Value 2 is of type ${name}, not number, bigint, boolean, string or null`));
  }
  for (const text of ['a\ud800', '\udc00a', '\ud800\ud800', 'ü\ud83d']) {
    assert.throws(() => database.run('INSERT INTO t n = ? s = ?', 1, text),
      typeError('Value 2 has a lone surrogate'));
  }
  assert.throws(() => database.exec("INSERT INTO t s = '\udc00'"),
    typeError('The command has a lone surrogate'));
  assert.throws(() => database.prepare(5), typeError('The command is not a string'));
  assert.deepEqual(database.all('SELECT * FROM t'), []);
});

withDatabase('values can be given as one array, or be bound before', (database) => {
  database.exec('CREATE TABLE t n int s string');
  database.run('INSERT INTO t n = ? s = ?', [1, 'a']);
  const insert = database.prepare('INSERT INTO t n = ? s = ?').bind(2, 'b');
  insert.run();
  assert.throws(() => insert.run(3, 'c'),
    { name: 'TypeError', message: 'This statement already has bound parameters' });
  assert.deepEqual(database.prepare('SELECT * FROM t').raw().all(), [[1, 'a'], [2, 'b']]);
});

withDatabase('many rows of values are all or none', (database) => {
  database.exec('CREATE TABLE t id ApexInt n int s string');
  const insert = database.prepare('INSERT INTO t n = ? s = ?');
  const rows = Array.from({ length: 5_000 }, (_, i) => [i, i % 3 === 0 ? null : `ü${i}`]);
  assert.deepEqual(insert.runMany(rows), { changes: 5_000, lastInsertRowid: 5_000 });
  assert.deepEqual(database.prepare('SELECT n, s FROM t').raw().all(), rows);
  assert.throws(() => insert.runMany([...rows, ['d', 'x']]),
    { code: 'VELMORA_WRONG_TYPE', column: 'n' });
  assert.throws(() => insert.runMany([[1, 'a'], [4]]),
    refusal('MISUSE', 'The command has places for 2 values, not 1'));
  assert.equal(database.prepare('SELECT COUNT(*) FROM t').pluck().get(), 5_000);
  assert.ok(!database.inTransaction);
  assert.deepEqual(database.runMany('DELETE FROM t WHERE n = ?', [[1], [2], [99_999]]).changes, 2);
});

withDatabase('many rows within a transaction fail alone', (database) => {
  database.exec('CREATE TABLE t n int');
  database.transaction(() => {
    database.exec('INSERT INTO t n = 1');
    const rows = Array.from({ length: 1_000 }, (_, i) => [i === 999 ? 'x' : i]);
    assert.throws(() => database.runMany('INSERT INTO t n = ?', rows), VelmoraError);
  })();
  assert.deepEqual(database.all('SELECT n FROM t'), [{ n: 1 }]);
});
