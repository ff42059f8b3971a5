// The package for Node.js beside better-sqlite3, in one run: node_bench.mjs [--quick]
//
// Both are called as their documents say, do the same, and take turns; the best of some rounds
// counts. Files are against files in one directory (SQLite's with a write-ahead log), memory
// against memory: velmora's directory is then in /dev/shm, as it always keeps a log. Where
// better-sqlite3 cannot be loaded velmora stands alone.
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import process from 'node:process';

import { open } from 'velmora';

const isQuick = process.argv.includes('--quick');
const rounds = isQuick ? 3 : 7;
const rowCount = 100_000;

function sqliteOrNone() {
  try {
    return createRequire(import.meta.url)('better-sqlite3');
  } catch {
    console.log('better-sqlite3 cannot be loaded; velmora stands alone');
    return null;
  }
}
const Sqlite = sqliteOrNone();

const directory = fs.mkdtempSync(path.join(process.env.BENCH_DIRECTORY ?? os.tmpdir(), 'bench-'));
const memory = fs.mkdtempSync('/dev/shm/bench-');
let databases = 0;

function velmoraAt(place, durability) {
  databases += 1;
  return open(path.join(place === 'memory' ? memory : directory, `v${databases}`), { durability });
}

function sqliteAt(place, synchronous) {
  databases += 1;
  const file = place === 'memory' ? ':memory:' : path.join(directory, `s${databases}`);
  const database = new Sqlite(file);
  database.pragma('journal_mode = WAL');
  database.pragma(`synchronous = ${synchronous}`);
  return database;
}

// ---- What is done: a table of nine columns, in both languages ----

const given = Array.from({ length: rowCount }, (_, i) => [
  i % 1_000, i * 1_000_003, i / 4, i * 1.1, `name ${i}`, `some longer text of row ${i}`,
  i % 2 === 0, i % 7]);
const givenToSqlite = given.map((row) => row.map((value) =>
  (typeof value === 'boolean' ? Number(value) : value)));

const inVelmora = {
  make(database) {
    database.exec('CREATE TABLE t id int a int b long c double d double e string f string '
      + 'g bool h int');
    database.exec('CREATE TABLE child t int');
    database.exec('LINK child.t --> t.id'); // which makes id a key
  },
  drop: ['DROP TABLE child', 'DROP TABLE t'],
  insert: 'INSERT INTO t id = ? a = ? b = ? c = ? d = ? e = ? f = ? g = ? h = ?',
  rows: given.map((row, i) => [i, ...row]),
  many: (database, insert, rows) => insert.runMany(rows),
  byKey: 'SELECT e, c FROM t WHERE id = ?',
};
const inSqlite = {
  make: (database) => database.exec('CREATE TABLE t(id INTEGER PRIMARY KEY, a INTEGER, '
    + 'b INTEGER, c REAL, d REAL, e TEXT, f TEXT, g INTEGER, h INTEGER)'),
  drop: ['DROP TABLE t'],
  insert: 'INSERT INTO t VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)',
  rows: givenToSqlite.map((row, i) => [i, ...row]),
  many: (database, insert, rows) => database.transaction(() => {
    for (const row of rows) insert.run(row);
  })(),
  byKey: 'SELECT e, c FROM t WHERE id = ?',
};

function filled(database, language) {
  language.make(database);
  language.many(database, database.prepare(language.insert), language.rows);
  return database;
}

// ---- Workloads: each makes a function that is timed, and says how many operations that is ----

function singleInserts(count) {
  return (database, language) => {
    language.make(database);
    const insert = database.prepare(language.insert);
    let next = 0;
    return () => {
      for (let i = 0; i < count; i += 1) {
        const row = language.rows[next % rowCount];
        row[0] = next;
        insert.run(row);
        next += 1;
      }
    };
  };
}

function manyRows(database, language) {
  language.make(database);
  const insert = database.prepare(language.insert);
  const before = () => {
    for (const command of language.drop) database.exec(command);
    language.make(database);
  };
  return { before, timed: () => language.many(database, insert, language.rows) };
}

function byKey(database, language) {
  const select = filled(database, language).prepare(language.byKey);
  return () => {
    for (let key = 0; key < rowCount; key += 1) select.get(key * 7 % rowCount);
  };
}

function readAll(database, language) {
  const select = filled(database, language).prepare('SELECT * FROM t');
  return () => select.all();
}

const durable = isQuick ? 100 : 500;
const quick = isQuick ? 5_000 : 20_000;
const workloads = [
  ['by key, files', byKey, rowCount, 'file', 'always', 'FULL'],
  ['by key, memory', byKey, rowCount, 'memory', 'off', 'OFF'],
  ['durable inserts, files', singleInserts(durable), durable, 'file', 'always', 'FULL'],
  ['inserts, files', singleInserts(quick), quick, 'file', 'off', 'OFF'],
  ['inserts, memory', singleInserts(quick), quick, 'memory', 'off', 'OFF'],
  ['100,000 rows as one, files', manyRows, rowCount, 'file', 'off', 'OFF'],
  ['100,000 rows as one, memory', manyRows, rowCount, 'memory', 'off', 'OFF'],
  ['reading 100,000 rows, files', readAll, rowCount, 'file', 'off', 'OFF'],
  ['reading 100,000 rows, memory', readAll, rowCount, 'memory', 'off', 'OFF'],
];

const seconds = () => Number(process.hrtime.bigint()) / 1e9;

function timeOf(work) {
  const { before, timed } = typeof work === 'function' ? { before() {}, timed: work } : work;
  before();
  const begin = seconds();
  timed();
  return seconds() - begin;
}

// The best time of each, in rounds that they take turns in.
function compare(works) {
  const best = works.map(() => Infinity);
  for (let round = 0; round < rounds; round += 1) {
    works.forEach((work, i) => {
      best[i] = Math.min(best[i], timeOf(work));
    });
  }
  return best;
}

const column = (text, width) => String(text).padStart(width);
const micros = (time, count) => `${(time / count * 1e6).toFixed(2)} µs`;

function row(name, [velmora, sqlite], count) {
  const other = sqlite === undefined ? ['-', '-']
    : [micros(sqlite, count), `${(sqlite / velmora).toFixed(2)}x`];
  console.log(name.padEnd(32) + column(micros(velmora, count), 14) + column(other[0], 16)
    + column(other[1], 10));
}

console.log('each operation, the best of', rounds, 'rounds');
console.log(''.padEnd(32) + column('velmora', 14) + column('better-sqlite3', 16)
  + column('ratio', 10));
try {
  for (const [name, make, count, place, durability, synchronous] of workloads) {
    const databases = [velmoraAt(place, durability)];
    if (Sqlite !== null) databases.push(sqliteAt(place, synchronous));
    const works = databases.map((database, i) => make(database, i === 0 ? inVelmora : inSqlite));
    row(name, compare(works), count);
    for (const database of databases) database.close();
  }

  // A million rows of four columns: rows of objects on both sides, and velmora's arrays.
  const database = velmoraAt('memory', 'off');
  database.exec('CREATE TABLE m id int a long x double y double');
  const million = Array.from({ length: 1_000_000 }, (_, i) => [i, i * 3, i / 2, i / 3]);
  database.runMany('INSERT INTO m id = ? a = ? x = ? y = ?', million);
  const arrays = database.prepare('SELECT * FROM m');
  const works = [() => arrays.read().arrays()];
  let sqlite = null;
  if (Sqlite !== null) {
    sqlite = sqliteAt('memory', 'OFF');
    sqlite.exec('CREATE TABLE m(id INTEGER, a INTEGER, x REAL, y REAL)');
    inSqlite.many(sqlite, sqlite.prepare('INSERT INTO m VALUES(?, ?, ?, ?)'), million);
    const select = sqlite.prepare('SELECT * FROM m');
    works.push(() => select.all());
  }
  row('1M x 4, arrays beside objects', compare(works), 1_000_000);
  works[0] = () => arrays.all();
  row('1M x 4, objects', compare(works), 1_000_000);
  database.close();
  sqlite?.close();
} finally {
  for (const each of [directory, memory]) fs.rmSync(each, { recursive: true });
}
