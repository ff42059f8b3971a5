// The arrays that the package and its addon both write, so that not every value needs a call.
//
// On their way in, values lie in them one behind another: the kind of each, numbers, integers of
// more than 53 bits, and of a text the place where it ends in one string of all texts. On their
// way out they hold blocks of rows; src/blocks.h describes these.
'use strict';

const { failure } = require('./errors.js');
const native = require('./native.js');

const [NULL, INTEGER, REAL, BOOLEAN, TEXT, WIDE_INTEGER] = [0, 1, 2, 3, 4, 5];

// Enough for most; more of a block would not stay in the processor's cache.
const usual = 2048;

const scratch = { numbers: null, wide: null, kinds: null, length: 0 };

function resize(length) {
  scratch.numbers = new Float64Array(length);
  scratch.wide = new BigInt64Array(length);
  scratch.kinds = new Uint8Array(length);
  scratch.length = length;
  native.setScratch(scratch.numbers, scratch.wide, scratch.kinds);
}
resize(usual);

// Puts a value that is neither a number nor a string in its place; index is for messages.
function putOther(value, place, index) {
  const { numbers, wide, kinds } = scratch;
  if (value === null) {
    kinds[place] = NULL;
  } else if (typeof value === 'boolean') {
    kinds[place] = BOOLEAN;
    numbers[place] = value ? 1 : 0;
  } else if (typeof value === 'bigint') {
    if (BigInt.asIntN(64, value) !== value) {
      throw failure('RANGE', `Value ${index + 1} is an integer outside 64 bits`);
    }
    kinds[place] = WIDE_INTEGER;
    wide[place] = value;
  } else {
    throw new TypeError(`Value ${index + 1} is of type ${typeof value}, `
      + 'not number, bigint, boolean, string or null');
  }
}

// Puts values from a place on; gives the string of the texts, these behind those.
function put(values, place, length, texts) {
  const { numbers, kinds } = scratch;
  let all = texts;
  for (let i = 0; i < length; i += 1) {
    const value = values[i];
    if (typeof value === 'number') {
      kinds[place + i] = Number.isSafeInteger(value) ? INTEGER : REAL;
      numbers[place + i] = value;
    } else if (typeof value === 'string') {
      all = all === '' ? value : all + value;
      kinds[place + i] = TEXT;
      numbers[place + i] = all.length;
    } else {
      putOther(value, place + i, i);
    }
  }
  return all;
}

function makeRoom(length) {
  if (length > scratch.length || scratch.length > usual) resize(Math.max(length, usual));
}

// Packs values; gives the string of their texts.
function pack(values) {
  makeRoom(values.length);
  return put(values, 0, values.length, '');
}

// Packs the rows from begin to end, each of so many values; gives the string of their texts.
function packRows(rows, begin, end, parameters) {
  makeRoom((end - begin) * parameters);
  let texts = '';
  let place = 0;
  for (let i = begin; i < end; i += 1) {
    if (rows[i].length !== parameters) {
      throw failure('MISUSE',
        `The command has places for ${parameters} values, not ${rows[i].length}`);
    }
    texts = put(rows[i], place, parameters, texts);
    place += parameters;
  }
  return texts;
}

module.exports = { BOOLEAN, INTEGER, REAL, TEXT, pack, packRows, scratch };
