// The exceptions: what the engine refuses is a VelmoraError, with a class of its own where programs
// often want to tell it from the rest.
'use strict';

const native = require('./native.js');

// By the numbers of velmora.h.
const names = [
  'OK', 'MISUSE', 'BUSY', 'READ_ONLY', 'NOT_FOUND', 'EXISTS', 'DUPLICATE', 'MISSING_PARENT',
  'RESTRICTED', 'WRONG_TYPE', 'RANGE', 'SYNTAX', 'FULL', 'CORRUPT', 'IO', 'NO_MEMORY',
  'INTERRUPTED', 'TRANSACTION', 'IN_USE', 'INTERNAL',
];
const numbers = Object.fromEntries(names.map((name, number) => [name, number]));

class VelmoraError extends Error {
  constructor(message, number, details) {
    super(message);
    this.code = `VELMORA_${names[number] ?? number}`;
    this.number = number;
    Object.assign(this, {
      offset: null, table: null, column: null, system: null, process: null, ...details,
    });
  }
}
class BusyError extends VelmoraError {}
class ConstraintError extends VelmoraError {}
class InterruptedError extends VelmoraError {}

for (const type of [VelmoraError, BusyError, ConstraintError, InterruptedError]) {
  Object.defineProperty(type.prototype, 'name', {
    value: type.name, configurable: true, writable: true,
  });
}

const classes = new Map([
  [numbers.BUSY, BusyError],
  [numbers.DUPLICATE, ConstraintError],
  [numbers.MISSING_PARENT, ConstraintError],
  [numbers.RESTRICTED, ConstraintError],
  [numbers.INTERRUPTED, InterruptedError],
]);

function failure(name, message, details) {
  const number = numbers[name];
  return new (classes.get(number) ?? VelmoraError)(message, number, details);
}

native.setErrors((number, message, offset, table, column, system, process) =>
  new (classes.get(number) ?? VelmoraError)(message, number, {
    offset: offset < 0 ? null : offset,
    table: table || null,
    column: column || null,
    system: system || null,
    process: process || null,
  }));

module.exports = { BusyError, ConstraintError, InterruptedError, VelmoraError, failure };
