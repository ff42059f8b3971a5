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

function packOther(value, index) {
  const { numbers, wide, kinds } = scratch;
  if (value === null) {
    kinds[index] = NULL;
  } else if (typeof value === 'boolean') {
    kinds[index] = BOOLEAN;
    numbers[index] = value ? 1 : 0;
  } else if (typeof value === 'bigint') {
    if (BigInt.asIntN(64, value) !== value) {
      throw failure('RANGE', `Value ${index + 1} is an integer outside 64 bits`);
    }
    kinds[index] = WIDE_INTEGER;
    wide[index] = value;
  } else {
    throw new TypeError(`Value ${index + 1} is of type ${typeof value}, `
      + 'not number, bigint, boolean, string or null');
  }
}

// Packs the values; gives the string of their texts.
function pack(values) {
  const { length } = values;
  if (length > scratch.length || scratch.length > usual) resize(Math.max(length, usual));
  const { numbers, kinds } = scratch;
  let texts = '';
  for (let i = 0; i < length; i += 1) {
    const value = values[i];
    if (typeof value === 'number') {
      kinds[i] = Number.isSafeInteger(value) ? INTEGER : REAL;
      numbers[i] = value;
    } else if (typeof value === 'string') {
      texts = texts === '' ? value : texts + value;
      kinds[i] = TEXT;
      numbers[i] = texts.length;
    } else {
      packOther(value, i);
    }
  }
  return texts;
}

module.exports = { BOOLEAN, INTEGER, NULL, REAL, TEXT, pack, scratch };
