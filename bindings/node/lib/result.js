// An answer as a whole: rows, columns as arrays, what was changed, and what becomes of it.
'use strict';

const native = require('./native.js');
const {
  ROWS_IN_BLOCK, ROWS_IN_RESULT, changesInHeader, identityInHeader, namedColumns, readerOf,
  secondInHeader, withSecond,
} = require('./rows.js');
const { BOOLEAN, INTEGER, REAL, TEXT, scratch } = require('./scratch.js');

// A column of a result as arrays, which lie in the result's own memory.
class Column {
  constructor(name, [type, values, ends, nulls]) {
    this.name = name;
    this.nulls = nulls === null ? null : new Uint8Array(nulls);
    this.values = null;
    if (type === INTEGER) this.values = new BigInt64Array(values);
    if (type === REAL) this.values = new Float64Array(values);
    if (type === BOOLEAN) this.values = new Uint8Array(values);
    if (type !== TEXT) return;
    this.texts = Buffer.from(values);
    this.ends = new BigUint64Array(ends);
  }

  // The value of a row, integers as bigints.
  at(row) {
    if (this.nulls?.[row] === 1) return null;
    if (this.texts === undefined) {
      const value = this.values?.[row];
      return this.values instanceof Uint8Array && value !== undefined ? value === 1 : value;
    }
    if (!(row in this.ends)) return undefined;
    return this.texts.toString('utf8', row === 0 ? 0 : Number(this.ends[row - 1]),
      Number(this.ends[row]));
  }
}

const VALUE_TYPES = ['null', 'integer', 'real', 'boolean', 'text'];

// Columns for those who ask.
const describedColumns = (columns) => columns.map(({ name, declaredType, type }) => ({
  name, type: declaredType || null, valueType: VALUE_TYPES[type],
}));

class Result {
  #handle;
  #columns;
  #form;
  #hasSafeIntegers;
  #rows = null;
  #arrays = new Map();

  constructor(handle, form, hasSafeIntegers) {
    this.#handle = handle;
    this.#columns = namedColumns(native.resultColumns(handle));
    this.#form = form;
    this.#hasSafeIntegers = hasSafeIntegers;
    this.message = native.resultHeader(handle);
    this.length = scratch.numbers[ROWS_IN_RESULT];
    this.changes = changesInHeader();
    this.lastInsertRowid = identityInHeader(hasSafeIntegers);
    this.changesAt = secondInHeader();
  }

  get columns() {
    return describedColumns(this.#columns);
  }

  * #blocks() {
    const reader = readerOf(this.#columns, this.#form, this.#hasSafeIntegers);
    for (let row = 0; row < this.length;) {
      const texts = native.resultBlock(this.#handle, row);
      const count = scratch.numbers[ROWS_IN_BLOCK];
      row += count;
      yield (rows, most = count) => reader(rows, most, texts, scratch.numbers, scratch.wide);
    }
  }

  get rows() {
    if (this.#rows === null) {
      this.#rows = [];
      for (const read of this.#blocks()) read(this.#rows);
      withSecond(this.#rows, this.changesAt);
    }
    return this.#rows;
  }

  get first() {
    const rows = [];
    for (const read of this.#blocks()) {
      read(rows, 1);
      break;
    }
    return rows[0];
  }

  * [Symbol.iterator]() {
    for (const read of this.#blocks()) {
      const rows = [];
      read(rows);
      yield* rows;
    }
  }

  #place(column) {
    const place = typeof column === 'number' ? column
      : this.#columns.findIndex(({ name }) => name === column);
    if (this.#columns[place] === undefined) throw new RangeError(`There is no column ${column}`);
    return place;
  }

  timed(row, column) {
    const timed = native.timed(this.#handle, row, this.#place(column));
    if (timed === null) return null;
    const [cycles, changesAt, value] = timed;
    const isNumber = typeof value === 'bigint' && !this.#hasSafeIntegers
      && Number.isSafeInteger(Number(value));
    return { cycles, changesAt, next: isNumber ? Number(value) : value };
  }

  column(column) {
    const place = this.#place(column);
    if (!this.#arrays.has(place)) {
      const { name } = this.#columns[place];
      this.#arrays.set(place, new Column(name, native.column(this.#handle, place)));
    }
    return this.#arrays.get(place);
  }

  arrays() {
    const names = this.#columns.map(({ name }) => name);
    return Object.fromEntries(names.map((name, place) => [name, this.column(place)]));
  }

  close() {
    native.release(this.#handle);
  }
}

module.exports = { Column, Result, describedColumns };
