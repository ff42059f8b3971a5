/** One value of a row: a bigint only for a whole number of more than 53 bits. */
export type Value = null | number | bigint | boolean | string;

/** A row: each column, named as in the command, and its value. */
export interface Row {
  [column: string]: Value;
}

/** What a command answered. */
export interface Result {
  /** The rows that were read, in their order; empty for a command that reads none. */
  rows: Row[];
  /** The columns' names. One that was asked for twice is here twice, and in a row once. */
  columns: string[];
  /** The number of rows found, inserted, changed or removed. */
  affected: number;
  /** What the engine has to say, often nothing. */
  message: string;
  /** The identity number that an INSERT gave the row. */
  identity: number | null;
  /**
   * The second, since 1970, at which this answer becomes another by time alone; null: never. Up to
   * then, and as long as nobody changes the tables, it may be kept and shown.
   */
  nextChange: number | null;
}

/** The numbers of velmora.h for what can go wrong. */
export const Code: {
  readonly MISUSE: 1;
  readonly BUSY: 2;
  readonly READ_ONLY: 3;
  readonly NOT_FOUND: 4;
  readonly EXISTS: 5;
  readonly DUPLICATE: 6;
  readonly MISSING_PARENT: 7;
  readonly RESTRICTED: 8;
  readonly WRONG_TYPE: 9;
  readonly RANGE: 10;
  readonly SYNTAX: 11;
  readonly FULL: 12;
  readonly CORRUPT: 13;
  readonly IO: 14;
  readonly NO_MEMORY: 15;
  readonly INTERRUPTED: 16;
  readonly TRANSACTION: 17;
  readonly INTERNAL: 19;
};

/** What the engine refused or failed at, in its own words. Nothing has been changed. */
export class VelmoraError extends Error {
  /** One of Code; 0: the library could not be asked. */
  code: number;
  /** Where in the command the word stands that is to blame, in bytes of its UTF-8. */
  offset: number | null;
  table: string | null;
  column: string | null;
  /** The system's errno. */
  systemError: number | null;
  /** With Code.BUSY the id of the process that holds the directory. */
  process: number | null;
}

export interface Options {
  /** Nothing on the disk is changed. */
  readOnly?: boolean;
  /** Whether the directory and an empty database may be made; true if not given. */
  create?: boolean;
  /** They must be made. */
  exclusive?: boolean;
  /** What a change needs before it is answered, as in velmora.h; 'always' if not given. */
  durability?: 'always' | 'everysec' | 'off';
  /** How long to wait for a directory that is in use; 0, not at all, if not given. */
  openWaitMilliseconds?: number;
  /** How long a command waits for another thread's transaction; 0 stands for 5000. */
  transactionWaitMilliseconds?: number;
}

/**
 * Opens the database of a directory. Throws VelmoraError when another process or thread has it
 * open, when its files are damaged, or when there is no library.
 */
export function open(path: string, options?: Options): Database;

/** An open database. All calls are synchronous: they return when the engine has done the work. */
export class Database {
  private constructor();

  /**
   * Runs one command, each "?" outside its literals standing for the value of its place.
   *
   * Throws VelmoraError when the command failed, which has changed nothing then. A value of another
   * type, and a string with half a surrogate pair, throw TypeError.
   */
  run(text: string, ...values: Value[]): Result;

  /** Parses a command that is to be run often. */
  prepare(text: string): Statement;

  /**
   * Runs the work, whose commands happen all or not at all: what it throws rolls them back. It
   * cannot be asynchronous.
   */
  transaction<T>(work: () => T): T;

  /** Writes all that has changed to the table files and empties the log. */
  checkpoint(): void;

  /** Copies the database into a directory that is empty or new. */
  backup(path: string): void;

  /**
   * Saves everything and lets the directory go; its statements are closed, an open transaction is
   * rolled back. Closing a closed database does nothing.
   */
  close(): void;
}

/** A command that is parsed once and run often. */
export class Statement {
  private constructor();

  /** Runs the command with these values; as Database.run. */
  run(...values: Value[]): Result;

  /**
   * Runs a command that changes something once for each row of values: for all or for none. The
   * result is that of the last run, with the rows affected by all.
   */
  runMany(rows: Value[][]): Result;

  /** Frees it; closing a closed one does nothing. */
  close(): void;
}

/** The version of libvelmora, such as "0.1.0". */
export function libraryVersion(): string;
