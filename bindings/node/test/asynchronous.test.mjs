// Asynchronous calls: what they give, their order, their transactions, and how they are stopped.
import assert from 'node:assert/strict';
import path from 'node:path';

import { BusyError, InterruptedError, open, openAsync } from 'velmora';

import { inDirectory, refusal, withDatabase } from './support.mjs';

const numbers = (count) => Array.from({ length: count }, (_, i) => [i]);

// Interrupts again and again, since the call may not have begun yet, until it has ended.
async function isInterrupted(database, call) {
  let ended = false;
  const rejected = assert.rejects(call.finally(() => { ended = true; }), (error) => {
    assert.ok(error instanceof InterruptedError);
    assert.equal(error.code, 'VELMORA_INTERRUPTED');
    return true;
  });
  while (!ended) {
    database.interrupt();
    await new Promise(setImmediate);
  }
  await rejected;
}

withDatabase('each call has an asynchronous twin', async (database) => {
  await database.execAsync('CREATE TABLE t id ApexInt n int s string');
  assert.deepEqual(await database.runAsync('INSERT INTO t n = ? s = ?', 1, 'Zoë'),
    { changes: 1, lastInsertRowid: 1 });
  assert.deepEqual(await database.runManyAsync('INSERT INTO t n = ? s = ?', [[2, 'b'], [3, null]]),
    { changes: 2, lastInsertRowid: 3 });
  const rows = await database.allAsync('SELECT n, s FROM t WHERE n < ?', 3);
  assert.deepEqual(rows, [{ n: 1, s: 'Zoë' }, { n: 2, s: 'b' }]);
  assert.equal(rows.changesAt, null);
  assert.deepEqual(await database.getAsync('SELECT s FROM t'), { s: 'Zoë' });
  assert.equal(await database.getAsync('SELECT s FROM t WHERE n = 9'), undefined);
  assert.deepEqual((await database.readAsync('SELECT n FROM t')).column('n').values,
    BigInt64Array.of(1n, 2n, 3n));
  await database.execAsync([['INSERT INTO t n = ?', 4], 'DELETE FROM t WHERE n = 1']);
  const select = database.prepare('SELECT n FROM t').pluck();
  assert.deepEqual(await select.allAsync(), [2, 3, 4]);
  assert.equal(await select.getAsync(), 2);
  assert.deepEqual((await select.safeIntegers().readAsync()).rows, [2n, 3n, 4n]);
  const insert = database.prepare('INSERT INTO t n = ?');
  assert.equal((await insert.runAsync(5)).lastInsertRowid, 5);
  assert.equal((await insert.runManyAsync(numbers(3))).changes, 3);
  await database.checkpointAsync();
});

withDatabase('what fails is a rejected promise', async (database) => {
  database.exec('CREATE TABLE t n int');
  const text = 'INSERT INTO t n = ?';
  await assert.rejects(database.runAsync(text, 'x'),
    { code: 'VELMORA_WRONG_TYPE', offset: 18, table: 't', column: 'n' });
  await assert.rejects(database.runAsync(text),
    refusal('MISUSE', 'The command has places for 1 values, not 0'));
  await assert.rejects(database.runAsync(text, undefined), { name: 'TypeError' });
  await assert.rejects(database.allAsync(text, 1), { name: 'TypeError' });
  await assert.rejects(database.runAsync('SELECT n FROM t'), { name: 'TypeError' });
  await assert.rejects(database.allAsync('SELEC'), { code: 'VELMORA_SYNTAX' });
  await assert.rejects(database.runManyAsync(text, [[1], []]), { code: 'VELMORA_MISUSE' });
  await assert.rejects(database.execAsync(['DROP TABLE t', 'X']), { code: 'VELMORA_SYNTAX' });
  assert.deepEqual(await database.allAsync('SELECT n FROM t'), []);
});

withDatabase('calls are done in their order', async (database) => {
  database.exec('CREATE TABLE t n int');
  const calls = [];
  for (let i = 0; i < 50; i += 1) calls.push(database.runAsync('INSERT INTO t n = ?', i));
  const counted = database.getAsync('SELECT COUNT(*) FROM t');
  await Promise.all(calls);
  assert.deepEqual(await counted, { 'COUNT(*)': 50 });
  assert.deepEqual(database.prepare('SELECT n FROM t').raw().all(), numbers(50));
});

withDatabase('a statement may run here while it runs there', async (database) => {
  database.exec('CREATE TABLE t n int');
  database.runMany('INSERT INTO t n = ?', numbers(10_000));
  const select = database.prepare('SELECT n FROM t WHERE n >= ?').raw();
  const calls = [];
  for (let i = 0; i < 20; i += 1) {
    calls.push(select.allAsync(9_990));
    assert.equal(select.all(5_000).length, 5_000);
  }
  for (const rows of await Promise.all(calls)) assert.equal(rows.length, 10);
});

withDatabase('an asynchronous transaction is whole or not at all', async (database) => {
  database.exec('CREATE TABLE t id ApexInt n int');
  const insert = database.prepare('INSERT INTO t n = ?');
  const value = await database.transactionAsync(async (transaction) => {
    assert.equal((await transaction.run(insert, 1)).lastInsertRowid, 1);
    await transaction.runMany('INSERT INTO t n = ?', [[2], [3]]);
    await transaction.exec(['DELETE FROM t WHERE n = 2']);
    await transaction.exec('INSERT INTO t n = 4');
    assert.deepEqual(await transaction.get('SELECT n FROM t WHERE n > ?', 3), { n: 4 });
    assert.equal((await transaction.read('SELECT n FROM t')).length, 3);
    return transaction.all('SELECT n FROM t');
  });
  assert.deepEqual(value, [{ n: 1 }, { n: 3 }, { n: 4 }]);
  await assert.rejects(database.transactionAsync(async (transaction) => {
    await transaction.run(insert, 5);
    throw new RangeError('of the program');
  }), { name: 'RangeError', message: 'of the program' });
  await assert.rejects(database.transactionAsync(async (transaction) => {
    await transaction.run(insert, 5);
    await transaction.run(insert, 'x');
  }), { code: 'VELMORA_WRONG_TYPE' });
  assert.equal(database.all('SELECT n FROM t').length, 3);
});

withDatabase('others wait for a transaction, and it for nobody', async (database) => {
  database.exec('CREATE TABLE t n int');
  const insert = database.prepare('INSERT INTO t n = ?');
  const order = [];
  const done = (name) => () => order.push(name);
  const first = database.transactionAsync(async (transaction) => {
    await transaction.run(insert, 1);
    await new Promise(setImmediate);
    assert.deepEqual(await transaction.all('SELECT n FROM t'), [{ n: 1 }]);
  }).then(done('first'));
  const outside = insert.runAsync(2).then(done('outside'));
  const second = database.transactionAsync(async (transaction) => {
    assert.equal((await transaction.all('SELECT n FROM t')).length, 2);
  }).then(done('second'));
  const checkpoint = database.checkpointAsync().then(done('checkpoint'));
  const busy = refusal('BUSY', 'An asynchronous transaction has the database');
  for (const call of [() => insert.run(3), () => database.all('SELECT n FROM t'),
    () => database.checkpoint(), () => database.exec(['SHOW TABLES']), () => database.close(),
    () => database.transaction(() => 1)()]) {
    assert.throws(call, (error) => error instanceof BusyError);
    assert.throws(call, busy);
  }
  await Promise.all([first, outside, second, checkpoint]);
  assert.deepEqual(order, ['first', 'outside', 'second', 'checkpoint']);
  assert.equal(insert.run(3).changes, 1);
});

withDatabase('a call that would wait for its own transaction fails', async (database) => {
  database.exec('CREATE TABLE t n int');
  await database.transactionAsync(async (transaction) => {
    const own = refusal('BUSY', 'The call would wait for the transaction that it is made in, '
      + 'and is to be made by that');
    await assert.rejects(database.allAsync('SELECT n FROM t'), own);
    await assert.rejects(database.transactionAsync(async () => {}), own);
    await assert.rejects(database.closeAsync(), own);
    await transaction.run('INSERT INTO t n = 1');
  });
  assert.deepEqual(await database.allAsync('SELECT n FROM t'), [{ n: 1 }]);
});

withDatabase('a transaction that has ended takes no more calls', async (database) => {
  database.exec('CREATE TABLE t n int');
  let kept;
  await database.transactionAsync(async (transaction) => {
    kept = transaction;
    transaction.run('INSERT INTO t n = 1'); // not awaited, and part of it all the same
  });
  await assert.rejects(kept.run('INSERT INTO t n = 2'),
    refusal('TRANSACTION', 'The transaction has ended'));
  assert.deepEqual(database.all('SELECT n FROM t'), [{ n: 1 }]);
  database.exec('BEGIN');
  await assert.rejects(database.transactionAsync(async () => {}),
    refusal('TRANSACTION', 'A transaction of the synchronous calls is open'));
  database.exec('ROLLBACK');
});

withDatabase('asynchronous calls wait for a synchronous transaction', async (database) => {
  database.exec('CREATE TABLE t n int');
  let counted;
  database.transaction(() => {
    counted = database.getAsync('SELECT COUNT(*) FROM t');
    database.runMany('INSERT INTO t n = ?', numbers(1_000));
  })();
  assert.deepEqual(await counted, { 'COUNT(*)': 1_000 });
  database.exec('BEGIN');
  await assert.rejects(database.runAsync('INSERT INTO t n = 1'), { code: 'VELMORA_BUSY' });
  database.exec('COMMIT');
}, { transactionWait: 20 });

withDatabase('a long command is interrupted', async (database) => {
  for (const table of ['many', 'others']) {
    database.exec(`CREATE TABLE ${table} n int one int`);
    database.runMany(`INSERT INTO ${table} n = ? one = 1`, numbers(20_000));
  }
  // Pairs of all rows with all rows.
  await isInterrupted(database, database.allAsync(
    'SELECT many.n, others.n FROM many JOIN others ON many.one = others.one'));
  assert.deepEqual(await database.getAsync('SELECT COUNT(*) FROM many'), { 'COUNT(*)': 20_000 });
});

withDatabase('a command that waits is interrupted', async (database) => {
  database.exec('CREATE TABLE t n int');
  database.exec('BEGIN');
  await isInterrupted(database, database.runAsync('INSERT INTO t n = 1'));
  database.exec('COMMIT');
  assert.deepEqual(database.all('SELECT n FROM t'), []);
}, { transactionWait: Infinity });

inDirectory('opening, backing up and closing can be awaited', async (directory) => {
  const place = path.join(directory, 'a');
  const database = await openAsync(place);
  database.exec('CREATE TABLE t n int');
  await assert.rejects(openAsync(place), (error) => error instanceof BusyError);
  const copy = path.join(directory, 'b');
  await database.backupAsync(copy);
  await assert.rejects(database.backupAsync(copy), { code: 'VELMORA_EXISTS' });
  const statement = database.prepare('SHOW TABLES');
  const last = database.runAsync('INSERT INTO t n = 1');
  assert.throws(() => database.close(),
    refusal('BUSY', 'Asynchronous calls of the database are under way'));
  const closing = database.closeAsync();
  assert.throws(() => statement.all(), refusal('MISUSE', 'The database is closed'));
  await assert.rejects(database.allAsync('SHOW TABLES'), { code: 'VELMORA_MISUSE' });
  await Promise.all([last, closing, database.closeAsync()]);
  assert.ok(!database.isOpen);
  database.interrupt();
  const again = await openAsync(place);
  assert.deepEqual(await again.allAsync('SELECT n FROM t'), [{ n: 1 }]);
  again.close();
  open(copy).close();
});

inDirectory('callbacks are called here for what is done there', async (directory) => {
  let now = 1_000;
  let stops = false;
  const told = new Set();
  const options = {
    durability: 'off',
    clock: () => now,
    progress(what) {
      told.add(what);
      return !stops;
    },
  };
  const database = await openAsync(directory, options);
  await database.execAsync('CREATE TABLE t colour string 2 s string(1000)');
  await database.runAsync('INSERT INTO t colour = ? --> ? @ 30 s', 'red', 'green');
  const early = database.allAsync('SELECT colour FROM t');
  now = 1_030;
  assert.deepEqual(await early, [{ colour: 'red' }]);
  assert.deepEqual(await database.allAsync('SELECT colour FROM t'), [{ colour: 'green' }]);
  await database.runManyAsync('INSERT INTO t s = ?', numbers(20_000).map(() => ['x'.repeat(900)]));
  await database.checkpointAsync();
  assert.ok(told.has('checkpoint'), [...told]);
  now = 'noon';
  await assert.rejects(database.allAsync('SELECT colour FROM t'),
    { name: 'TypeError', message: 'The clock gives no number' });
  now = 1_040;
  await database.closeAsync();
});
