// A prepared statement.
'use strict';

const native = require('./native.js');
const { Result, describedColumns } = require('./result.js');
const {
  HAS_NEW_COLUMNS, ROWS_IN_BLOCK, ROWS_IN_RESULT, changesInHeader, identityInHeader, namedColumns,
  readerOf, secondInHeader, withSecond,
} = require('./rows.js');
const { pack, packRows, scratch } = require('./scratch.js');

// Of velmora_kind.
const READS = 0;

// More of them would not stay in the processor's nearer caches.
const rowsOfPart = 128;

// The rows of a result that nobody else has.
function* rowsOf(result) {
  try {
    yield* result;
  } finally {
    result.close();
  }
}

class Statement {
  #connection;
  #handle;
  #text;
  #parameters;
  #reads;
  #bound = null;
  #form = 'object';
  #hasSafeIntegers;
  #columns = null;
  #reader = null;

  constructor(connection, text) {
    this.#connection = connection;
    this.#handle = native.prepare(connection.handle, text);
    this.#text = text;
    this.#parameters = scratch.numbers[0];
    this.#reads = scratch.numbers[1] === READS;
    this.#hasSafeIntegers = connection.hasSafeIntegers;
  }

  get source() {
    return this.#text;
  }

  get reader() {
    return this.#reads;
  }

  get parameters() {
    return this.#parameters;
  }

  // The values that a run is given, or that were bound before.
  #given(values) {
    if (this.#bound !== null) {
      if (values.length > 0) throw new TypeError('This statement already has bound parameters');
      return this.#bound;
    }
    return values.length === 1 && Array.isArray(values[0]) ? values[0] : values;
  }

  #requireReading() {
    if (!this.#reads) {
      throw new TypeError('This statement does not return data. Use run() instead');
    }
  }

  #requireChanging() {
    if (this.#reads) {
      throw new TypeError('This statement returns data. Use get(), all(), or iterate() instead');
    }
  }

  // Runs it with the values; gives the texts of the first block.
  #query(given) {
    this.#requireReading();
    const texts = native.query(this.#handle, given.length, pack(given));
    if (scratch.numbers[HAS_NEW_COLUMNS] === 1) {
      this.#columns = namedColumns(native.statementColumns(this.#handle));
      this.#reader = null;
    }
    this.#reader ??= readerOf(this.#columns, this.#form, this.#hasSafeIntegers);
    return texts;
  }

  all(...values) {
    let texts = this.#query(this.#given(values));
    const { numbers, wide } = scratch;
    const count = numbers[ROWS_IN_RESULT];
    const second = secondInHeader();
    const rows = [];
    this.#reader(rows, numbers[ROWS_IN_BLOCK], texts, numbers, wide);
    while (rows.length < count) {
      texts = native.nextBlock(this.#handle);
      this.#reader(rows, numbers[ROWS_IN_BLOCK], texts, numbers, wide);
    }
    return withSecond(rows, second);
  }

  get(...values) {
    const texts = this.#query(this.#given(values));
    const { numbers, wide } = scratch;
    if (numbers[ROWS_IN_BLOCK] === 0) return undefined;
    const rows = [];
    this.#reader(rows, 1, texts, numbers, wide);
    if (numbers[ROWS_IN_RESULT] > numbers[ROWS_IN_BLOCK]) native.forgetRows(this.#handle);
    return rows[0];
  }

  run(...values) {
    this.#requireChanging();
    const given = this.#given(values);
    native.change(this.#handle, given.length, pack(given));
    return this.#changed();
  }

  #changed() {
    return {
      changes: changesInHeader(),
      lastInsertRowid: identityInHeader(this.#hasSafeIntegers),
    };
  }

  // Many rows go in parts, as one transaction.
  runMany(rows) {
    this.#requireChanging();
    if (rows.length <= rowsOfPart || this.#connection.isInTransaction) {
      return this.#runPart(rows, 0, rows.length);
    }
    return this.#connection.transact(() => {
      let changed;
      let changes = 0;
      for (let row = 0; row < rows.length; row += rowsOfPart) {
        changed = this.#runPart(rows, row, Math.min(row + rowsOfPart, rows.length));
        changes += changed.changes;
      }
      return { ...changed, changes };
    });
  }

  #runPart(rows, begin, end) {
    const texts = packRows(rows, begin, end, this.#parameters);
    native.changeMany(this.#handle, (end - begin) * this.#parameters, texts, end - begin);
    return this.#changed();
  }

  read(...values) {
    const given = this.#given(values);
    const handle = native.read(this.#handle, given.length, pack(given));
    return new Result(handle, this.#form, this.#hasSafeIntegers);
  }

  iterate(...values) {
    this.#requireReading();
    return rowsOf(this.read(...values));
  }

  columns() {
    this.#requireReading();
    if (this.#columns === null) {
      this.#query(this.#bound ?? new Array(this.#parameters).fill(null));
      native.forgetRows(this.#handle);
    }
    return describedColumns(this.#columns);
  }

  bind(...values) {
    const given = this.#given(values);
    this.#bound = [...given];
    return this;
  }

  #formed(form, isOn) {
    this.#form = isOn ? form : 'object';
    this.#reader = null;
    return this;
  }

  raw(isOn = true) {
    return this.#formed('raw', isOn);
  }

  pluck(isOn = true) {
    return this.#formed('pluck', isOn);
  }

  safeIntegers(isOn = true) {
    this.#hasSafeIntegers = isOn;
    this.#reader = null;
    return this;
  }

  finalize() {
    native.finalize(this.#handle);
  }

  // Runs it on the worker, for a transaction if one is given.
  #runAsync(values, transaction) {
    return this.#connection.run(this.#text, [...this.#given(values)], {
      form: this.#form, hasSafeIntegers: this.#hasSafeIntegers, transaction,
    });
  }

  async allIn(transaction, values) {
    this.#requireReading();
    const result = await this.#runAsync(values, transaction);
    const { rows } = result;
    result.close();
    return rows;
  }

  async getIn(transaction, values) {
    this.#requireReading();
    const result = await this.#runAsync(values, transaction);
    const { first } = result;
    result.close();
    return first;
  }

  async runIn(transaction, values) {
    this.#requireChanging();
    const { changes, lastInsertRowid } = await this.#runAsync(values, transaction);
    return { changes, lastInsertRowid };
  }

  async runManyIn(transaction, rows) {
    this.#requireChanging();
    const { changes, lastInsertRowid } = await this.#connection.runMany(this.#text, rows,
      this.#parameters, transaction);
    return { changes, lastInsertRowid };
  }

  async readIn(transaction, values) {
    return this.#runAsync(values, transaction);
  }

  allAsync(...values) {
    return this.allIn(null, values);
  }

  getAsync(...values) {
    return this.getIn(null, values);
  }

  runAsync(...values) {
    return this.runIn(null, values);
  }

  runManyAsync(rows) {
    return this.runManyIn(null, rows);
  }

  readAsync(...values) {
    return this.readIn(null, values);
  }
}

module.exports = { Statement };
