// A database: its life, its commands, its transactions of both kinds.
'use strict';

const { Connection, split } = require('./connection.js');
const native = require('./native.js');
const { pack } = require('./scratch.js');
const { Statement } = require('./statement.js');

// What the function of an asynchronous transaction is given: its own calls.
class Transaction {
  #connection;
  #prepared;

  constructor(connection, prepared) {
    this.#connection = connection;
    this.#prepared = prepared;
  }

  async all(command, ...values) {
    return this.#prepared(command).allIn(this, values);
  }

  async get(command, ...values) {
    return this.#prepared(command).getIn(this, values);
  }

  async run(command, ...values) {
    return this.#prepared(command).runIn(this, values);
  }

  async runMany(command, rows) {
    return this.#prepared(command).runManyIn(this, rows);
  }

  async read(command, ...values) {
    return this.#prepared(command).readIn(this, values);
  }

  async exec(commands) {
    if (Array.isArray(commands)) await this.#connection.batch(commands, this);
    else await this.#connection.run(commands, [], { transaction: this });
  }
}

class Database {
  #connection;
  #path;
  #isOpen = true;

  constructor(handle, path) {
    this.#connection = new Connection(handle);
    this.#path = path;
  }

  get path() {
    return this.#path;
  }

  get isOpen() {
    return this.#isOpen;
  }

  get inTransaction() {
    return this.#isOpen && this.#connection.isInTransaction;
  }

  prepare(text) {
    return new Statement(this.#connection, text);
  }

  // A statement, or that of a text, which is kept.
  #prepared(command) {
    if (command instanceof Statement) return command;
    return this.#connection.kept(command, (text) => this.prepare(text));
  }

  all(text, ...values) {
    return this.#prepared(text).all(...values);
  }

  get(text, ...values) {
    return this.#prepared(text).get(...values);
  }

  run(text, ...values) {
    return this.#prepared(text).run(...values);
  }

  runMany(text, rows) {
    return this.#prepared(text).runMany(rows);
  }

  read(text, ...values) {
    return this.#prepared(text).read(...values);
  }

  iterate(text, ...values) {
    return this.#prepared(text).iterate(...values);
  }

  exec(commands) {
    if (Array.isArray(commands)) {
      const { texts, counts, values } = split(commands);
      const { handle } = this.#connection;
      native.release(native.batch(handle, texts, counts, values.length, pack(values)));
    } else {
      this.#prepared(commands).read().close();
    }
    return this;
  }

  // ---- Transactions ----

  transaction(work) {
    if (typeof work !== 'function') throw new TypeError('A transaction is made of a function');
    return (...values) => this.#connection.transact(() => {
      const value = work(...values);
      if (typeof value?.then === 'function') {
        throw new TypeError('The function of a transaction gives a promise; '
          + 'transactionAsync is for these');
      }
      return value;
    });
  }

  async transactionAsync(work) {
    const connection = this.#connection;
    const transaction = new Transaction(connection, (command) => this.#prepared(command));
    const own = { transaction };
    return connection.surround(transaction, async () => {
      await connection.run('BEGIN', [], own);
      try {
        const value = await work(transaction);
        await connection.run('COMMIT', [], own);
        return value;
      } catch (error) {
        // What has ended it already is the reason to tell.
        await connection.run('ROLLBACK', [], own).catch(() => {});
        throw error;
      }
    });
  }

  // ---- Asynchronous calls ----

  async allAsync(text, ...values) {
    return this.#prepared(text).allIn(null, values);
  }

  async getAsync(text, ...values) {
    return this.#prepared(text).getIn(null, values);
  }

  async runAsync(text, ...values) {
    return this.#prepared(text).runIn(null, values);
  }

  async runManyAsync(text, rows) {
    return this.#prepared(text).runManyIn(null, rows);
  }

  async readAsync(text, ...values) {
    return this.#prepared(text).readIn(null, values);
  }

  async execAsync(commands) {
    if (Array.isArray(commands)) await this.#connection.batch(commands);
    else await this.#connection.run(commands, []);
  }

  async checkpointAsync() {
    await this.#connection.post(() => native.checkpointAsync(this.#connection.handle));
  }

  async backupAsync(path) {
    await this.#connection.post(() => native.backupAsync(this.#connection.handle, path));
  }

  async closeAsync() {
    if (!this.#isOpen) return;
    await this.#connection.post(() => {
      this.#isOpen = false;
      return native.closeAsync(this.#connection.handle);
    });
  }

  // ---- Looking after it ----

  checkpoint() {
    native.checkpoint(this.#connection.handle);
    return this;
  }

  backup(path) {
    native.backup(this.#connection.handle, path);
  }

  interrupt() {
    native.interrupt(this.#connection.handle);
  }

  defaultSafeIntegers(isOn = true) {
    this.#connection.hasSafeIntegers = isOn;
    return this;
  }

  close() {
    if (!this.#isOpen) return;
    native.close(this.#connection.handle);
    this.#isOpen = false;
  }
}

module.exports = { Database, Transaction };
