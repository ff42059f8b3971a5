// velmora from Node.js. index.d.ts describes what there is; the parts stand in lib/.
'use strict';

const { Database, Transaction } = require('./lib/database.js');
const {
  BusyError, ConstraintError, InterruptedError, VelmoraError,
} = require('./lib/errors.js');
const native = require('./lib/native.js');
const { Column, Result } = require('./lib/result.js');
const { Statement } = require('./lib/statement.js');

const FLAGS = { readOnly: 1, create: 2, exclusive: 4, repair: 8 };
const DURABILITIES = ['always', 'everysec', 'off'];
const LEVELS = ['information', 'warning', 'error'];
const KNOWN = [...Object.keys(FLAGS), 'durability', 'openWait', 'transactionWait', 'log',
  'progress', 'clock'];
const NO_LIMIT = 2 ** 32 - 1;

function flagsOf(options) {
  const given = { create: !options.readOnly, ...options };
  return Object.entries(FLAGS).reduce((sum, [name, flag]) => sum + (given[name] ? flag : 0), 0);
}

function durabilityOf({ durability = 'always' }) {
  const number = DURABILITIES.indexOf(durability);
  if (number < 0) throw new TypeError(`No durability: ${durability}`);
  return number;
}

function milliseconds(name, wait) {
  if (typeof wait !== 'number' || !(wait >= 0)) {
    throw new TypeError(`${name} is no number of milliseconds`);
  }
  return Math.min(Math.round(wait), NO_LIMIT);
}

function callbackOf(options, name) {
  const callback = options[name];
  if (callback !== undefined && typeof callback !== 'function') {
    throw new TypeError(`${name} is no function`);
  }
  return callback;
}

// A database that is not open yet.
function made(options) {
  const unknown = Object.keys(options).find((name) => !KNOWN.includes(name));
  if (unknown !== undefined) throw new TypeError(`No option: ${unknown}`);
  const { openWait = 0, transactionWait = 5000 } = options;
  const log = callbackOf(options, 'log');
  return native.makeDatabase(flagsOf(options), durabilityOf(options),
    milliseconds('openWait', openWait),
    // The engine's own 0 is for its usual wait.
    Math.max(1, milliseconds('transactionWait', transactionWait)),
    log && ((level, line) => log(LEVELS[level], line)),
    callbackOf(options, 'progress'), callbackOf(options, 'clock'));
}

function open(path, options = {}) {
  const handle = made(options);
  native.open(handle, path);
  return new Database(handle, path);
}

async function openAsync(path, options = {}) {
  const handle = made(options);
  await native.openAsync(handle, path);
  return new Database(handle, path);
}

function check(path) {
  const faults = [];
  native.check(path, (file, offset, meaning) => {
    faults.push({ file, offset: offset < 0 ? null : offset, meaning });
  });
  return faults;
}

module.exports = {
  BusyError, Column, ConstraintError, Database, InterruptedError, Result, Statement, Transaction,
  VelmoraError, check, open, openAsync, version: native.version(),
};
