// Ends: of the process, of threads, of objects that nobody has any more.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import process from 'node:process';
import { Worker } from 'node:worker_threads';

import { open } from 'velmora';

import { inDirectory, program, runNode } from './support.mjs';

inDirectory('a promise that is waited for keeps the process', (directory) => {
  const { status, stderr, stdout } = runNode(directory, `
    velmora.openAsync('.').then(async (database) => {
      await database.execAsync('CREATE TABLE t n int');
      await database.transactionAsync(async (transaction) => {
        for (let n = 0; n < 5; n += 1) await transaction.run('INSERT INTO t n = ?', n);
      });
      console.log((await database.allAsync('SELECT n FROM t')).length);
    });`);
  assert.deepEqual([status, stderr, stdout], [0, '', '5\n']);
});

inDirectory('a process ends with calls under way', (directory) => {
  const { status, stderr, stdout } = runNode(directory, `
    const database = velmora.open('.');
    database.exec('CREATE TABLE many n int one int');
    database.runMany('INSERT INTO many n = ? one = 1',
      Array.from({ length: 20_000 }, (_, i) => [i]));
    database.exec('CREATE TABLE others n int one int');
    database.runMany('INSERT INTO others n = ? one = 1',
      Array.from({ length: 20_000 }, (_, i) => [i]));
    const statement = database.prepare('SHOW TABLES');
    database.getAsync('SELECT COUNT(*) FROM many JOIN others ON many.one = others.one');
    database.transactionAsync((transaction) => transaction.run('INSERT INTO many n = 1'));
    database.closeAsync();
    setImmediate(() => process.exit(3));`);
  assert.deepEqual([status, stderr, stdout], [3, '', '']);
  const database = open(directory);
  assert.deepEqual(database.all('SELECT COUNT(*) FROM many'), [{ 'COUNT(*)': 20_000 }]);
  database.close();
});

inDirectory('a process may end within a callback', (directory) => {
  for (const options of ['{ clock: () => process.exit(4) }', '{ progress: () => process.exit(4) }',
    '{ log: () => process.exit(4), repair: true }']) {
    const { status, stderr } = runNode(directory, `
      const rows = Array.from({ length: 20_000 }, (_, i) => [i]);
      let database = velmora.open('.', { durability: 'off' });
      database.exec('CREATE TABLE t' + process.pid + ' n int');
      database.runMany('INSERT INTO t' + process.pid + ' n = ?', rows);
      database.close();
      database = velmora.open('.', ${options});
      database.checkpoint();
      process.exit(4);`);
    assert.deepEqual([status, stderr], [4, '']);
  }
});

inDirectory('objects that nobody has any more are collected', (directory) => {
  const { status, stderr, stdout } = runNode(directory, `
    let database = velmora.open('.', { durability: 'off', log: console.log });
    database.exec('CREATE TABLE t n int');
    for (let i = 0; i < 10_000; i += 1) database.prepare('INSERT INTO t n = 1').run();
    for (let i = 0; i < 1_000; i += 1) database.read('SELECT n FROM t WHERE n = 2');
    database = null;
    const wait = () => new Promise(setImmediate);
    (async () => {
      for (;;) {
        global.gc();
        await wait();
        try {
          database = velmora.open('.');
          break;
        } catch (error) {
          if (error.code !== 'VELMORA_BUSY') throw error;
        }
      }
      console.log(database.all('SELECT n FROM t').length);
    })();`, '--expose-gc');
  assert.deepEqual([status, stderr, stdout], [0, '', '10000\n']);
});

inDirectory('each thread has databases of its own', async (directory) => {
  const database = open(directory);
  const worker = new Worker(program(`
    const { parentPort } = require('node:worker_threads');
    let message;
    try {
      velmora.open(${JSON.stringify(directory)});
    } catch ({ code, process }) {
      message = { code, process };
    }
    const own = velmora.open(${JSON.stringify(`${directory}/own`)});
    own.exec('CREATE TABLE t n int');
    own.runAsync('INSERT INTO t n = ?', 1).then(() => parentPort.postMessage(message));`),
  { eval: true });
  const [message] = await once(worker, 'message');
  await once(worker, 'exit');
  assert.deepEqual(message, { code: 'VELMORA_BUSY', process: process.pid });
  database.close();
  // The end of the thread has let its directory go.
  const own = open(`${directory}/own`);
  assert.deepEqual(own.all('SELECT n FROM t'), [{ n: 1 }]);
  own.close();
});

inDirectory('threads that are terminated let go of what they have', async (directory) => {
  for (let round = 0; round < 5; round += 1) {
    const worker = new Worker(program(`
      const database = velmora.open(${JSON.stringify(directory)}, { log() {}, progress() {} });
      const table = 't' + ${round};
      database.exec('CREATE TABLE ' + table + ' n int');
      const statement = database.prepare('SELECT n FROM ' + table);
      const again = () => database.runAsync('INSERT INTO ' + table + ' n = 1').then(again);
      again();
      database.transactionAsync(() => new Promise(() => {}));
      require('node:worker_threads').parentPort.postMessage('begun');`), { eval: true });
    await once(worker, 'message');
    await worker.terminate();
    const database = open(directory);
    assert.equal(database.all('SHOW TABLES').length, round + 1);
    database.close();
  }
});
