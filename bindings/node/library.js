// libvelmora's guarded C functions: finding the library, calling it, freeing what it hands out.
// Knows the C header and the foreign function interface (koffi); what the calls mean to a program
// is left to index.js.
'use strict';

const koffi = require('koffi');

// With the number of its interface, so that a library of another one is not taken for it.
const INSTALLED_NAME = 'libvelmora.so.0';

const [INTEGER, FLOAT, BOOL, TEXT] = [0, 1, 2, 3];

/** What the engine refused or failed at, in its own words. */
class VelmoraError extends Error {
  constructor(message) {
    super(message);
    this.name = 'VelmoraError';
  }
}

// The bytes of a text. One with half a surrogate pair has no UTF-8.
function encoded(text, what) {
  if (/\p{Surrogate}/u.test(text)) throw new TypeError(`${what} has a lone surrogate`);
  return Buffer.from(text, 'utf8');
}

// What is outside 64 bits is outside the engine's 32 as well, and refused as such.
function boundInteger(value) {
  if (BigInt.asIntN(64, value) === value) return value;
  return value < 0n ? -(2n ** 63n) : 2n ** 63n - 1n;
}

// The value for the placeholder of that number, counted from 1, as the header's velmora_value.
function boundValue(value, number) {
  const bound = { type: INTEGER, integer: 0n, real: 0, boolean: 0, text: null, text_size: 0 };
  switch (typeof value) {
    case 'bigint':
      return { ...bound, integer: boundInteger(value) };
    case 'number':
      if (Number.isInteger(value)) return { ...bound, integer: boundInteger(BigInt(value)) };
      return { ...bound, type: FLOAT, real: value };
    case 'boolean':
      return { ...bound, type: BOOL, boolean: value ? 1 : 0 };
    case 'string': {
      const text = encoded(value, `Parameter ${number}`);
      return { ...bound, type: TEXT, text, text_size: text.length };
    }
    default:
      throw new TypeError(`Parameter ${number} is of type ${value === null ? 'null' : typeof value}`
        + ', not number, bigint, boolean or string');
  }
}

function open(path) {
  const functions = koffi.load(path);
  const free = functions.func('velmora_free', 'void', ['void *']);
  // Made into a string and freed.
  const ownedText = koffi.disposable('str', free);
  const messages = koffi.out(koffi.pointer(ownedText));
  // Types without names: another copy of this package may be loaded beside this one.
  const valueType = koffi.struct({
    type: 'int',
    integer: 'int64_t',
    real: 'double',
    boolean: 'int',
    text: koffi.pointer('uint8_t'),
    text_size: 'size_t',
  });
  return {
    start: functions.func('velmora_start', 'int', [messages]),
    stop: functions.func('velmora_stop', 'int', [messages]),
    query: functions.func('velmora_query_bound', ownedText,
      ['str', koffi.pointer(valueType), 'size_t']),
    version: functions.func('velmora_version', 'str', []),
  };
}

let opened = null;

// The library's functions, loaded once; tried again after a failure.
function functions() {
  if (opened !== null) return opened;
  const path = process.env.VELMORA_LIBRARY || INSTALLED_NAME;
  try {
    opened = open(path);
  } catch (error) {
    throw new VelmoraError(`libvelmora cannot be loaded (${path}: ${error.message}); install it, `
      + 'or set the environment variable VELMORA_LIBRARY to its path');
  }
  return opened;
}

function change(run, otherwise) {
  const message = [null];
  if (run(message) !== 0) throw new VelmoraError(message[0] ?? otherwise);
}

/** Starts the process's engine in the current directory. */
function start() {
  change(functions().start, 'The engine cannot be started');
}

/** Saves everything and stops the process's engine. */
function stop() {
  change(functions().stop, 'The engine cannot be stopped');
}

/** The answer to a command, parsed. */
function query(text, values) {
  encoded(text, 'Command');
  if (text.includes('\0')) throw new TypeError('Command has a NUL');
  const bound = values.map((value, i) => boundValue(value, i + 1));
  const answer = functions().query(text, bound, bound.length);
  if (answer === null) throw new VelmoraError("No memory for the engine's answer");
  return JSON.parse(answer);
}

/** Whether the process has a started engine, whoever has started it. */
function isStarted() {
  return query('', []).message !== 'Engine not started.';
}

/** The library's version. */
function version() {
  return functions().version();
}

module.exports = { VelmoraError, isStarted, query, start, stop, version };
