// A database as a JavaScript object: its life, its commands, statements, transactions and results.
// Relies on library.js for every call of the library. index.d.ts describes it for users.
'use strict';

const {
  Code, VelmoraError, boundValue, call, encoded, functions, made, takenResult,
} = require('./library.js');

const [READ_ONLY, CREATE, EXCLUSIVE] = [1, 2, 4];
const DURABILITIES = ['always', 'everysec', 'off'];

const misuse = (message) => new VelmoraError(message, { code: Code.MISUSE });

const bound = (values) => values.map((value, i) => boundValue(value, i + 1));

class Database {
  #handle;
  #statements = new Set();

  constructor(handle) {
    this.#handle = handle;
  }

  #open() {
    if (this.#handle === null) throw misuse('The database is closed');
    return this.#handle;
  }

  close() {
    if (this.#handle === null) return;
    for (const statement of this.#statements) statement.close();
    call(functions().close, this.#handle);
    this.#handle = null;
  }

  run(text, ...values) {
    const handle = this.#open();
    const command = encoded(text, 'Command');
    return takenResult(
      made(functions().run, handle, command, command.length, bound(values), values.length));
  }

  prepare(text) {
    const handle = this.#open();
    const command = encoded(text, 'Command');
    const statement = new Statement(made(functions().prepare, handle, command, command.length),
      (closed) => this.#statements.delete(closed));
    this.#statements.add(statement);
    return statement;
  }

  transaction(work) {
    this.run('BEGIN');
    let value;
    try {
      value = work();
      if (typeof value?.then === 'function') throw new TypeError('A transaction cannot be awaited');
    } catch (error) {
      this.#rollBack();
      throw error;
    }
    this.run('COMMIT');
    return value;
  }

  // The work may have ended the transaction itself.
  #rollBack() {
    try {
      this.run('ROLLBACK');
    } catch (error) {
      if (!(error instanceof VelmoraError)) throw error;
    }
  }

  checkpoint() {
    call(functions().checkpoint, this.#open());
  }

  backup(path) {
    const directory = encoded(path, 'Path');
    call(functions().backup, this.#open(), directory, directory.length);
  }
}

class Statement {
  #handle;
  #forget;
  #parameters;

  constructor(handle, forget) {
    this.#handle = handle;
    this.#forget = forget;
    this.#parameters = Number(functions().statementParameters(handle));
  }

  #open(rows) {
    if (this.#handle === null) throw misuse('The statement is closed');
    for (const values of rows) {
      if (values.length !== this.#parameters) {
        throw misuse(`The command has places for ${this.#parameters} values, not ${values.length}`);
      }
    }
    return this.#handle;
  }

  close() {
    if (this.#handle === null) return;
    functions().statementDestroy(this.#handle);
    this.#handle = null;
    this.#forget(this);
  }

  run(...values) {
    const handle = this.#open([values]);
    bound(values).forEach((value, i) => call(functions().bind, handle, i + 1, value));
    return takenResult(made(functions().statementRun, handle));
  }

  runMany(rows) {
    const handle = this.#open(rows);
    return takenResult(
      made(functions().statementRunMany, handle, rows.flatMap(bound), rows.length));
  }
}

function open(path, {
  readOnly = false, create = true, exclusive = false, durability = 'always',
  openWaitMilliseconds = 0, transactionWaitMilliseconds = 0,
} = {}) {
  if (!DURABILITIES.includes(durability)) throw new TypeError(`No durability: ${durability}`);
  const directory = encoded(path, 'Path');
  const flags = (readOnly ? READ_ONLY : 0) + (create && !readOnly ? CREATE : 0)
    + (exclusive ? EXCLUSIVE : 0);
  return new Database(made(functions().open, directory, directory.length, {
    size: functions().optionsSize,
    flags,
    durability: DURABILITIES.indexOf(durability),
    open_wait_milliseconds: openWaitMilliseconds,
    transaction_wait_milliseconds: transactionWaitMilliseconds,
    context: null,
    log: null,
    progress: null,
    clock: null,
  }));
}

const libraryVersion = () => functions().version();

module.exports = { Code, Database, Statement, VelmoraError, libraryVersion, open };
