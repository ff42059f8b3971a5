/** What can be given for a "?". A whole number of at most 53 bits is an integer, others floats. */
export type Value = null | number | bigint | boolean | string;

/** A row: each column, named as in the command, and its value. */
export interface Row {
  [column: string]: Value;
}

/** The rows of an answer. */
export interface Rows<R = Row> extends Array<R> {
  /**
   * The second, since 1970, at which this answer becomes another by time alone; null: never. Up to
   * then, and as long as nobody changes the tables, it may be kept and shown. Not enumerable.
   */
  readonly changesAt: number | null;
}

/** What a change did. */
export interface Change {
  /** How many rows were inserted, changed or removed. */
  changes: number;
  /** The identity number that an INSERT gave its row; null: it gave none. */
  lastInsertRowid: number | bigint | null;
}

export interface ColumnDescription {
  name: string;
  /** As the table declares it, such as "int"; null for what is computed. */
  type: string | null;
  valueType: 'null' | 'integer' | 'real' | 'boolean' | 'text';
}

/** What becomes of a timed value; the state in force is the value itself. */
export interface Timed {
  /** Whether its states follow each other for ever. */
  cycles: boolean;
  /** The second, since 1970, at which the next state follows; null: none does. */
  changesAt: number | null;
  /** That state; null: none follows. */
  next: Value;
}

/** The values of one column, without an object for each; they lie in the result's own memory. */
export class Column {
  private constructor();
  readonly name: string;
  /** A 1 for each null; null: no value is null. A null has a 0, or no text, in its place. */
  readonly nulls: Uint8Array | null;
  /** Whole numbers, floats, or 0 and 1 for bools; null for texts. */
  readonly values: BigInt64Array | Float64Array | Uint8Array | null;
  /** All texts in UTF-8, one behind another; undefined for other columns. */
  readonly texts?: Buffer;
  /** Where in texts each one ends, which is where the next begins. */
  readonly ends?: BigUint64Array;
  /** One value, integers as bigints; undefined behind the last. */
  at(row: number): Value | undefined;
}

/** An answer as a whole. It stays as it is, whatever becomes of the database. */
export class Result<R = Row> implements Iterable<R> {
  private constructor();
  /** How many rows there are. */
  readonly length: number;
  /** All rows; made when they are first asked for. */
  readonly rows: Rows<R>;
  /** The first row. */
  readonly first: R | undefined;
  readonly columns: ColumnDescription[];
  /** How many rows were found, inserted, changed or removed. */
  readonly changes: number;
  readonly lastInsertRowid: number | bigint | null;
  /** As Rows.changesAt. */
  readonly changesAt: number | null;
  /** What the engine has to say, often nothing. */
  readonly message: string;
  /** What becomes of a value; null: it is not timed. */
  timed(row: number, column: number | string): Timed | null;
  /** A column as arrays. */
  column(column: number | string): Column;
  /** All of them, by their names. */
  arrays(): { [column: string]: Column };
  /** The rows, made some at a time. */
  [Symbol.iterator](): IterableIterator<R>;
  /**
   * Frees its memory, which otherwise the garbage collector has done, between two turns of the
   * event loop; arrays of its columns stay. To be called where one turn reads much.
   */
  close(): void;
}

/**
 * A command that is parsed once and run often. Values are given to each run, one for each "?", or
 * all of them in one array.
 *
 * What ends with Async is done by the database's worker thread, in the order of the calls.
 */
export class Statement<R = Row> {
  private constructor();
  /** The command. */
  readonly source: string;
  /** Whether it gives rows; run is for the others, and for these the rest. */
  readonly reader: boolean;
  /** How many "?" there are. */
  readonly parameters: number;
  all(...values: Value[] | [Value[]]): Rows<R>;
  /** The first row; undefined: there is none. The whole answer is made: LIMIT 1 spares that. */
  get(...values: Value[] | [Value[]]): R | undefined;
  run(...values: Value[] | [Value[]]): Change;
  /** Runs it once for each row of values, all as one transaction. */
  runMany(rows: Value[][]): Change;
  /** The rows of the answer as it is now, made some at a time. */
  iterate(...values: Value[] | [Value[]]): IterableIterator<R>;
  /** Runs any command, and gives all that there is to know of its answer. */
  read(...values: Value[] | [Value[]]): Result<R>;
  /** The columns of its last answer; of one to nulls, where there was none. */
  columns(): ColumnDescription[];
  /** Gives all runs to come these values. */
  bind(...values: Value[] | [Value[]]): this;
  /** Rows are arrays of their values. */
  raw(isOn?: boolean): this;
  /** Rows are their first values. */
  pluck(isOn?: boolean): this;
  /** All whole numbers come as bigints, and not only those of more than 53 bits. */
  safeIntegers(isOn?: boolean): this;
  /** Frees it, which otherwise the garbage collector does. */
  finalize(): void;
  allAsync(...values: Value[] | [Value[]]): Promise<Rows<R>>;
  getAsync(...values: Value[] | [Value[]]): Promise<R | undefined>;
  runAsync(...values: Value[] | [Value[]]): Promise<Change>;
  runManyAsync(rows: Value[][]): Promise<Change>;
  readAsync(...values: Value[] | [Value[]]): Promise<Result<R>>;
}

/** A command, or a command and its values. */
export type Command = string | [text: string, ...values: Value[]];

/** The calls of an asynchronous transaction. */
export class Transaction {
  private constructor();
  all<R = Row>(command: string | Statement<R>, ...values: Value[]): Promise<Rows<R>>;
  get<R = Row>(command: string | Statement<R>, ...values: Value[]): Promise<R | undefined>;
  run(command: string | Statement, ...values: Value[]): Promise<Change>;
  runMany(command: string | Statement, rows: Value[][]): Promise<Change>;
  read<R = Row>(command: string | Statement<R>, ...values: Value[]): Promise<Result<R>>;
  exec(commands: string | Command[]): Promise<void>;
}

export class Database {
  private constructor();
  /** As it was opened. */
  readonly path: string;
  readonly isOpen: boolean;
  /** Whether a transaction of the synchronous calls is open. */
  readonly inTransaction: boolean;

  prepare<R = Row>(text: string): Statement<R>;

  /** As those of a statement, which is prepared and kept for the text. */
  all<R = Row>(text: string, ...values: Value[] | [Value[]]): Rows<R>;
  get<R = Row>(text: string, ...values: Value[] | [Value[]]): R | undefined;
  run(text: string, ...values: Value[] | [Value[]]): Change;
  runMany(text: string, rows: Value[][]): Change;
  iterate<R = Row>(text: string, ...values: Value[] | [Value[]]): IterableIterator<R>;
  read<R = Row>(text: string, ...values: Value[] | [Value[]]): Result<R>;
  /** Runs one command, or several as one transaction. */
  exec(commands: string | Command[]): this;

  /**
   * Gives a function that runs the work in a transaction: its commands happen all, or, if it
   * throws, none. Within another such function it is part of that one's transaction, which then
   * cannot be committed if this one throws. The work cannot be asynchronous.
   */
  transaction<A extends unknown[], T>(work: (...values: A) => T): (...values: A) => T;

  allAsync<R = Row>(text: string, ...values: Value[] | [Value[]]): Promise<Rows<R>>;
  getAsync<R = Row>(text: string, ...values: Value[] | [Value[]]): Promise<R | undefined>;
  runAsync(text: string, ...values: Value[] | [Value[]]): Promise<Change>;
  runManyAsync(text: string, rows: Value[][]): Promise<Change>;
  readAsync<R = Row>(text: string, ...values: Value[] | [Value[]]): Promise<Result<R>>;
  execAsync(commands: string | Command[]): Promise<void>;
  /**
   * Runs the work, whose calls of the transaction happen all, or, if its promise is rejected, none.
   * Until it has ended, other asynchronous calls wait, and synchronous ones are refused with a
   * BusyError.
   */
  transactionAsync<T>(work: (transaction: Transaction) => Promise<T> | T): Promise<T>;

  /** Writes all that has changed to the table files and empties the log. */
  checkpoint(): this;
  checkpointAsync(): Promise<void>;
  /** Copies the database into a directory that is empty or new. */
  backup(path: string): void;
  backupAsync(path: string): Promise<void>;
  /** Has the asynchronous call that is running or waiting for the engine fail; InterruptedError. */
  interrupt(): void;
  /** As Statement.safeIntegers, for all statements that are prepared from now on. */
  defaultSafeIntegers(isOn?: boolean): this;
  /**
   * Saves everything and lets the directory go; statements end, an open transaction is rolled back.
   * Refused with a BusyError while asynchronous calls are under way; closeAsync waits for these.
   * Closing a closed database does nothing.
   */
  close(): void;
  closeAsync(): Promise<void>;
}

export interface Options {
  /** Nothing on the disk is changed; goes with other readers. */
  readOnly?: boolean;
  /** Whether the directory and an empty database may be made; true if not given. */
  create?: boolean;
  /** They must be made. */
  exclusive?: boolean;
  /** What is damaged is opened as far as that can be; log is told what is lost. */
  repair?: boolean;
  /** What a change needs before it is answered, as in velmora.h; "always" if not given. */
  durability?: 'always' | 'everysec' | 'off';
  /** How many milliseconds to wait for a directory that is in use; 0 if not given. */
  openWait?: number;
  /** How many milliseconds to wait for another thread's transaction, Infinity being for ever; 5000
   * if not given. */
  transactionWait?: number;
  /** Told what a person who runs the program may want to know. */
  log?: (level: 'information' | 'warning' | 'error', line: string) => void;
  /**
   * Told now and then how much of something long is done; false stops it. During synchronous calls
   * it is called at once; the worker tells it without waiting, and stops as soon as it can.
   */
  progress?: (
    what: 'load' | 'replay' | 'checkpoint' | 'backup', done: number, total: number,
  ) => boolean | void;
  /** Gives the second that it is, since 1970; asked once at the beginning of each call. */
  clock?: () => number;
}

/** Opens the database of a directory. */
export function open(path: string, options?: Options): Database;
export function openAsync(path: string, options?: Options): Promise<Database>;

/** Something in the files that is not as it was written. */
export interface Fault {
  file: string;
  /** In bytes; null: the file as a whole. */
  offset: number | null;
  meaning: string;
}

/** Reads the database of a directory that nobody has open; gives all its faults. */
export function check(path: string): Fault[];

/** What the engine refused or failed at, in its own words. Nothing has been changed. */
export class VelmoraError extends Error {
  protected constructor();
  /** The name of its code, such as "VELMORA_WRONG_TYPE". */
  code: string;
  /** That code's number in velmora.h. */
  number: number;
  /** Where in the command the word stands that is to blame, in bytes of its UTF-8. */
  offset: number | null;
  table: string | null;
  column: string | null;
  /** The system's errno. */
  system: number | null;
  /** With VELMORA_BUSY the id of the process that holds the directory. */
  process: number | null;
}

/** VELMORA_BUSY: the directory is in use, or a transaction that the call would wait for lasts. */
export class BusyError extends VelmoraError {}
/** VELMORA_DUPLICATE, VELMORA_MISSING_PARENT, VELMORA_RESTRICTED: the rows' rules forbid it. */
export class ConstraintError extends VelmoraError {}
/** VELMORA_INTERRUPTED: by interrupt or a progress callback. */
export class InterruptedError extends VelmoraError {}

/** That of the engine, such as "0.1.0". */
export const version: string;
