// libvelmora's functions: finding them, and how texts, values, errors and results pass. Knows the C
// header and the foreign function interface (koffi); what the calls mean to a program is left to
// index.js.
'use strict';

const koffi = require('koffi');

// With the number of its interface, so that a library of another one is not taken for it.
const INSTALLED_NAME = 'libvelmora.so.0';

/** The header's velmora_code. */
const Code = Object.freeze({
  MISUSE: 1,
  BUSY: 2,
  READ_ONLY: 3,
  NOT_FOUND: 4,
  EXISTS: 5,
  DUPLICATE: 6,
  MISSING_PARENT: 7,
  RESTRICTED: 8,
  WRONG_TYPE: 9,
  RANGE: 10,
  SYNTAX: 11,
  FULL: 12,
  CORRUPT: 13,
  IO: 14,
  NO_MEMORY: 15,
  INTERRUPTED: 16,
  TRANSACTION: 17,
  INTERNAL: 19,
});

const [NULL, INTEGER, REAL, BOOLEAN, TEXT] = [0, 1, 2, 3, 4];

/** What the engine refused or failed at, in its own words. */
class VelmoraError extends Error {
  constructor(message, fields) {
    super(message);
    this.name = 'VelmoraError';
    Object.assign(this, { code: 0, offset: null, table: null, column: null, systemError: null,
      process: null }, fields);
  }
}

// The bytes of a text. One with half a surrogate pair has no UTF-8.
function encoded(text, what) {
  if (typeof text !== 'string') throw new TypeError(`${what} is not a string`);
  if (/\p{Surrogate}/u.test(text)) throw new TypeError(`${what} has a lone surrogate`);
  return Buffer.from(text, 'utf8');
}

function boundInteger(value, number) {
  if (BigInt.asIntN(64, value) === value) return value;
  throw new VelmoraError(`Parameter ${number} is an integer outside 64 bits`, { code: Code.RANGE });
}

// The value for the placeholder of that number, counted from 1, as the header's velmora_value.
function boundValue(value, number) {
  const bound = { type: NULL, integer: 0n, real: 0, boolean: 0, text: null, text_size: 0 };
  if (value === null) return bound;
  switch (typeof value) {
    case 'bigint':
      return { ...bound, type: INTEGER, integer: boundInteger(value, number) };
    case 'number':
      if (Number.isSafeInteger(value)) return { ...bound, type: INTEGER, integer: BigInt(value) };
      return { ...bound, type: REAL, real: value };
    case 'boolean':
      return { ...bound, type: BOOLEAN, boolean: value ? 1 : 0 };
    case 'string': {
      const text = encoded(value, `Parameter ${number}`);
      return { ...bound, type: TEXT, text, text_size: text.length };
    }
    default:
      throw new TypeError(`Parameter ${number} is of type ${typeof value}`
        + ', not number, bigint, boolean, string or null');
  }
}

function load(path) {
  const library = koffi.load(path);
  // Types without names: another copy of this package may be loaded beside this one.
  const handle = 'void *';
  const bytes = koffi.pointer('uint8_t');
  const values = koffi.pointer(koffi.struct({
    type: 'int',
    integer: 'int64_t',
    real: 'double',
    boolean: 'int',
    text: bytes,
    text_size: 'size_t',
  }));
  const options = koffi.struct({
    size: 'uint32_t',
    flags: 'uint32_t',
    durability: 'uint32_t',
    open_wait_milliseconds: 'uint32_t',
    transaction_wait_milliseconds: 'uint32_t',
    context: 'void *',
    log: 'void *',
    progress: 'void *',
    clock: 'void *',
  });
  const made = koffi.out(koffi.pointer(handle));
  const number = koffi.out(koffi.pointer('int64_t'));
  const length = koffi.out(koffi.pointer('size_t'));
  const cell = [handle, 'size_t', 'size_t'];
  const declare = (name, result, ...parameters) =>
    library.func(`velmora_${name}`, result, parameters);
  return {
    optionsSize: koffi.sizeof(options),
    open: declare('open', 'int', bytes, 'size_t', koffi.pointer(options), made, made),
    close: declare('close', 'int', handle, made),
    run: declare('run', 'int', handle, bytes, 'size_t', values, 'size_t', made, made),
    checkpoint: declare('checkpoint', 'int', handle, made),
    backup: declare('backup', 'int', handle, bytes, 'size_t', made),
    prepare: declare('prepare', 'int', handle, bytes, 'size_t', made, made),
    statementParameters: declare('statement_parameters', 'size_t', handle),
    bind: declare('bind', 'int', handle, 'size_t', values, made),
    statementRun: declare('statement_run', 'int', handle, made, made),
    statementRunMany: declare('statement_run_many', 'int', handle, values, 'size_t', made, made),
    statementDestroy: declare('statement_destroy', 'void', handle),
    errorText: declare('error_text', 'str', handle),
    errorOffset: declare('error_offset', 'int64_t', handle),
    errorTable: declare('error_table', 'str', handle),
    errorColumn: declare('error_column', 'str', handle),
    errorSystem: declare('error_system', 'int', handle),
    errorProcess: declare('error_process', 'int64_t', handle),
    errorDestroy: declare('error_destroy', 'void', handle),
    resultColumns: declare('result_columns', 'size_t', handle),
    resultRows: declare('result_rows', 'size_t', handle),
    resultColumnName: declare('result_column_name', 'str', handle, 'size_t', 'void *'),
    resultType: declare('result_type', 'int', ...cell),
    resultInteger: declare('result_integer', 'int64_t', ...cell),
    resultReal: declare('result_real', 'double', ...cell),
    resultBoolean: declare('result_boolean', 'int', ...cell),
    resultText: declare('result_text', 'void *', ...cell, length),
    resultRowsAffected: declare('result_rows_affected', 'int64_t', handle),
    resultMessage: declare('result_message', 'str', handle, 'void *'),
    resultIdentity: declare('result_identity', 'int', handle, number),
    resultNextChange: declare('result_next_change', 'int', handle, number),
    resultDestroy: declare('result_destroy', 'void', handle),
    version: declare('version', 'str'),
  };
}

let loaded = null;

/** The library's functions, loaded once; tried again after a failure. */
function functions() {
  if (loaded !== null) return loaded;
  const path = process.env.VELMORA_LIBRARY || INSTALLED_NAME;
  try {
    loaded = load(path);
  } catch (error) {
    throw new VelmoraError(`libvelmora cannot be loaded (${path}: ${error.message}); install it, `
      + 'or set the environment variable VELMORA_LIBRARY to its path');
  }
  return loaded;
}

// What the library tells of an error, which is destroyed.
function takenError(code, error) {
  if (error === null) return new VelmoraError('No memory for the engine', { code });
  const library = functions();
  const offset = library.errorOffset(error);
  const taken = new VelmoraError(library.errorText(error), {
    code,
    offset: offset < 0 ? null : offset,
    table: library.errorTable(error) || null,
    column: library.errorColumn(error) || null,
    systemError: library.errorSystem(error) || null,
    process: library.errorProcess(error) || null,
  });
  library.errorDestroy(error);
  return taken;
}

/** Calls a function that gives a code and takes an error last; throws what went wrong. */
function call(run, ...parameters) {
  const error = [null];
  const code = run(...parameters, error);
  if (code !== 0) throw takenError(code, error[0]);
}

/** The same for a function that hands an object out before the error. */
function made(run, ...parameters) {
  const object = [null];
  call(run, ...parameters, object);
  return object[0];
}

function cell(result, row, column) {
  const library = functions();
  switch (library.resultType(result, row, column)) {
    case INTEGER:
      return library.resultInteger(result, row, column);
    case REAL:
      return library.resultReal(result, row, column);
    case BOOLEAN:
      return library.resultBoolean(result, row, column) !== 0;
    case TEXT: {
      const length = [0];
      const text = library.resultText(result, row, column, length);
      return Number(length[0]) === 0 ? '' : koffi.decode.string(text, Number(length[0]));
    }
    default:
      return null;
  }
}

// What a function tells that gives whether there is a number, and the number.
function numberOf(tell, result) {
  const number = [0];
  return tell(result, number) ? number[0] : null;
}

/** What the library's result holds; that is destroyed. */
function takenResult(result) {
  const library = functions();
  try {
    const columns = Array.from({ length: Number(library.resultColumns(result)) },
      (_, column) => library.resultColumnName(result, column, null));
    const rows = Array.from({ length: Number(library.resultRows(result)) }, (_, row) =>
      Object.fromEntries(columns.map((name, column) => [name, cell(result, row, column)])));
    return {
      rows,
      columns,
      affected: library.resultRowsAffected(result),
      message: library.resultMessage(result, null),
      identity: numberOf(library.resultIdentity, result),
      nextChange: numberOf(library.resultNextChange, result),
    };
  } finally {
    library.resultDestroy(result);
  }
}

module.exports = {
  Code, VelmoraError, boundValue, call, encoded, functions, made, takenResult,
};
