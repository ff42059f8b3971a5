// The engine as a JavaScript object: its life, its commands, their answers. Relies on library.js
// for every call of the library. index.d.ts describes it for users.
'use strict';

const process = require('node:process');

const library = require('./library.js');

const { VelmoraError } = library;

// Runs something in another current directory.
function inDirectory(directory, run) {
  if (directory === undefined) return run();
  const before = process.cwd();
  process.chdir(directory);
  try {
    return run();
  } finally {
    process.chdir(before);
  }
}

class Engine {
  #directory;
  #isStarted = false;

  constructor(directory) {
    this.#directory = directory;
  }

  start() {
    if (library.isStarted()) throw new VelmoraError('The process has a started engine already');
    inDirectory(this.#directory, library.start);
    this.#isStarted = true;
    return this;
  }

  stop() {
    if (!this.#isStarted) return;
    library.stop();
    this.#isStarted = false;
  }

  query(text, ...values) {
    if (!this.#isStarted) throw new VelmoraError('The engine is not started');
    if (typeof text !== 'string') throw new TypeError('Command is not a string');
    const answer = library.query(text, values);
    if (!answer.success) throw new VelmoraError(answer.message);
    return { rows: answer.data ?? [], affected: answer.rows_affected, message: answer.message };
  }
}

module.exports = { Engine, VelmoraError, libraryVersion: library.version };
