// What a database and its statements share: the addon's handle, the prepared statements that are
// kept by their text, and the order in which asynchronous calls reach the worker.
//
// While an asynchronous transaction lasts, its own calls go to the worker at once, and all others
// wait here until it has ended.
'use strict';

const { AsyncLocalStorage } = require('node:async_hooks');

const { failure } = require('./errors.js');
const native = require('./native.js');
const { Result } = require('./result.js');
const { pack, packRows } = require('./scratch.js');

const mostStatements = 100;

// In which transaction's function a call is made. A call that would wait for the very transaction
// that waits for it has to be told from others.
const surrounding = new AsyncLocalStorage();

class Connection {
  hasSafeIntegers = false;
  #controls = new Map(); // BEGIN and its like, prepared
  #depth = 0; // of the synchronous transactions
  #hasFailed = false; // one within another
  #held = [];
  #statements = new Map();
  #transaction = null; // the asynchronous one that lasts

  constructor(handle) {
    this.handle = handle;
  }

  // The statement of a text, made by prepare unless it is kept.
  kept(text, prepare) {
    let statement = this.#statements.get(text);
    if (statement === undefined) {
      statement = prepare(text);
      if (this.#statements.size === mostStatements) {
        const [oldest, unused] = this.#statements.entries().next().value;
        this.#statements.delete(oldest);
        unused.finalize();
      }
    } else {
      this.#statements.delete(text);
    }
    this.#statements.set(text, statement);
    return statement;
  }

  // ---- Synchronous transactions ----

  get isInTransaction() {
    return native.isInTransaction(this.handle);
  }

  #control(text) {
    if (!this.#controls.has(text)) this.#controls.set(text, native.prepare(this.handle, text));
    native.change(this.#controls.get(text), 0, '');
  }

  // Does the work in a transaction, or in that which it is called in, which cannot be committed
  // then if the work fails.
  transact(work) {
    if (this.#depth > 0) return this.#within(work);
    this.#control('BEGIN');
    this.#hasFailed = false;
    try {
      const value = this.#within(work);
      if (this.#hasFailed) throw failure('TRANSACTION', 'A transaction within this one has failed');
      this.#control('COMMIT');
      return value;
    } catch (error) {
      if (this.isInTransaction) this.#control('ROLLBACK');
      throw error;
    }
  }

  #within(work) {
    this.#depth += 1;
    try {
      return work();
    } catch (error) {
      this.#hasFailed = true;
      throw error;
    } finally {
      this.#depth -= 1;
    }
  }

  // ---- Asynchronous calls ----

  // Starts an asynchronous call, now or when its turn comes; start gives a promise.
  post(start, transaction = null) {
    if (transaction !== this.#transaction && transaction !== null) {
      return Promise.reject(failure('TRANSACTION', 'The transaction has ended'));
    }
    if (transaction === this.#transaction) return this.#started(start);
    if (surrounding.getStore() === this.#transaction) {
      return Promise.reject(failure('BUSY',
        'The call would wait for the transaction that it is made in, and is to be made by that'));
    }
    return new Promise((resolve, reject) => {
      this.#held.push(() => this.#started(start).then(resolve, reject));
    });
  }

  async #started(start) {
    return start();
  }

  // Runs a command on the worker; gives its Result.
  async run(text, values, { form = 'object', hasSafeIntegers, transaction } = {}) {
    const handle = await this.post(
      () => native.runAsync(this.handle, text, values.length, pack(values)), transaction);
    return new Result(handle, form, hasSafeIntegers ?? this.hasSafeIntegers);
  }

  async runMany(text, rows, parameters, transaction) {
    const handle = await this.post(
      () => native.runManyAsync(this.handle, text, rows.length * parameters,
        packRows(rows, 0, rows.length, parameters), rows.length),
      transaction);
    return new Result(handle, 'object', this.hasSafeIntegers);
  }

  async batch(commands, transaction) {
    const { texts, counts, values } = split(commands);
    const handle = await this.post(
      () => native.batchAsync(this.handle, texts, counts, values.length, pack(values)),
      transaction);
    return new Result(handle, 'object', this.hasSafeIntegers);
  }

  // Has the transaction's calls, and no others, reach the worker while work's promise lasts.
  surround(transaction, work) {
    return this.post(async () => {
      if (this.isInTransaction) {
        throw failure('TRANSACTION', 'A transaction of the synchronous calls is open');
      }
      this.#transaction = transaction;
      native.reserve(this.handle, true);
      try {
        return await surrounding.run(transaction, work);
      } finally {
        native.reserve(this.handle, false);
        this.#transaction = null;
        while (this.#held.length > 0 && this.#transaction === null) this.#held.shift()();
      }
    });
  }
}

// Commands, each a text or an array of a text and values.
function split(commands) {
  const all = commands.map((command) => (Array.isArray(command) ? command : [command]));
  return {
    texts: all.map(([text]) => text),
    counts: all.map(({ length }) => length - 1),
    values: all.flatMap(([, ...values]) => values),
  };
}

module.exports = { Connection, split };
