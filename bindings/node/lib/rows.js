// Rows from the blocks that the addon writes. For each set of columns a function is made that
// writes out the rows' properties, so that all rows of an answer have one shape.
'use strict';

const { BOOLEAN, INTEGER, REAL, TEXT, scratch } = require('./scratch.js');

// Places in the scratch arrays, as in src/blocks.h.
const ROWS_IN_BLOCK = 0;
const ROWS_IN_RESULT = 1;
const HAS_NEW_COLUMNS = 2;
const CHANGES = 3;
const IDENTITY = 4;
const CHANGES_AT = 5;
const FIRST_VALUE = 8;

// What the i-th value of a row is, in the code of a reader.
function valueCode({ type }, i, hasSafeIntegers) {
  const number = `const n${i} = numbers[at + ${i}];`;
  switch (type) {
    case INTEGER:
      return hasSafeIntegers
        ? `${number} const v${i} = n${i} === n${i} ? wide[at + ${i}] : null;`
        : `${number} const v${i} = n${i} < Infinity ? n${i}
            : n${i} === n${i} ? wide[at + ${i}] : null;`;
    case REAL:
      return `${number} const v${i} = n${i} === n${i} ? n${i} : null;`;
    case BOOLEAN:
      return `${number} const v${i} = n${i} === n${i} ? n${i} === 1 : null;`;
    case TEXT:
      return `${number} let v${i} = null;
        if (n${i} === n${i}) { v${i} = texts.substring(begin, n${i}); begin = n${i}; }`;
    default:
      return `const v${i} = null;`;
  }
}

// In a literal this one name would set the prototype.
function propertyCode({ name }, i) {
  return name === '__proto__' ? `['__proto__']: v${i}` : `${JSON.stringify(name)}: v${i}`;
}

function rowCode(columns, form) {
  if (form === 'pluck') return 'v0';
  if (form === 'raw') return `[${columns.map((_, i) => `v${i}`).join(', ')}]`;
  return `{ ${columns.map(propertyCode).join(', ')} }`;
}

function compiledReader(columns, form, hasSafeIntegers) {
  return new Function('rows', 'count', 'texts', 'numbers', 'wide', `'use strict';
    let at = ${FIRST_VALUE};
    let begin = 0;
    for (let row = 0; row < count; row += 1) {
      ${columns.map((column, i) => valueCode(column, i, hasSafeIntegers)).join('\n')}
      rows.push(${rowCode(columns, form)});
      at += ${columns.length};
    }`);
}

// The same where a program has forbidden to make code from strings; slower.
function interpretedReader(columns, form, hasSafeIntegers) {
  return (rows, count, texts, numbers, wide) => {
    let begin = 0;
    const valueAt = (type, at) => {
      const number = numbers[at];
      if (Number.isNaN(number)) return null;
      if (type === INTEGER) return hasSafeIntegers || number === Infinity ? wide[at] : number;
      if (type === BOOLEAN) return number === 1;
      if (type !== TEXT) return number;
      const text = texts.substring(begin, number);
      begin = number;
      return text;
    };
    for (let row = 0; row < count; row += 1) {
      const at = FIRST_VALUE + row * columns.length;
      const values = columns.map(({ type }, i) => valueAt(type, at + i));
      if (form === 'pluck') rows.push(values[0]);
      else if (form === 'raw') rows.push(values);
      else rows.push(Object.fromEntries(columns.map(({ name }, i) => [name, values[i]])));
    }
  };
}

const readers = new Map();
const mostReaders = 500;

// reader(rows, count, texts, numbers, wide) puts the rows of a block behind those that there are.
function readerOf(columns, form, hasSafeIntegers) {
  const key = JSON.stringify([form, hasSafeIntegers, columns]);
  let reader = readers.get(key);
  if (reader !== undefined) return reader;
  try {
    reader = compiledReader(columns, form, hasSafeIntegers);
  } catch (error) {
    if (!(error instanceof EvalError)) throw error;
    reader = interpretedReader(columns, form, hasSafeIntegers);
  }
  if (readers.size === mostReaders) readers.delete(readers.keys().next().value);
  readers.set(key, reader);
  return reader;
}

// Columns as the addon gives them.
function namedColumns(columns) {
  return columns.map(([name, declaredType, type]) => ({ name, declaredType, type }));
}

function integerAt(place, hasSafeIntegers) {
  const number = scratch.numbers[place];
  if (Number.isNaN(number)) return null;
  return hasSafeIntegers || number === Infinity ? scratch.wide[place] : number;
}

// What the header says of a change, and when the answer becomes another.
const changesInHeader = () => scratch.numbers[CHANGES];
const identityInHeader = (hasSafeIntegers) => integerAt(IDENTITY, hasSafeIntegers);
function secondInHeader() {
  const second = scratch.numbers[CHANGES_AT];
  return Number.isNaN(second) ? null : second;
}

// An array of rows that knows when it becomes another; see Rows in index.d.ts.
function withSecond(rows, second) {
  return Object.defineProperty(rows, 'changesAt', { value: second });
}

module.exports = {
  HAS_NEW_COLUMNS, ROWS_IN_BLOCK, ROWS_IN_RESULT, changesInHeader, identityInHeader, namedColumns,
  readerOf, secondInHeader, withSecond,
};
