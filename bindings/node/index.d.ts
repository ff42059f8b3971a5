/** One value of a row. A float without a fraction comes as an integer. */
export type Value = null | number | boolean | string;

/**
 * What may be bound. A whole number is bound as an integer, and refused beyond 32 bits; any other
 * number as a float.
 */
export type Bindable = number | bigint | boolean | string;

/** A row: each column, named as in the command, and its value. */
export interface Row {
  [column: string]: Value;
}

/** What a command answered. */
export interface Answer {
  /** The rows that a SELECT found, in their order; empty for other commands. */
  rows: Row[];
  /** The number of rows found, inserted, changed or removed. */
  affected: number;
  /** What the engine has to say, such as "success!"; empty for a SELECT. */
  message: string;
}

/** What the engine refused or failed at: the message is the engine's. */
export class VelmoraError extends Error {}

/**
 * The process's engine. There is one a process; while it is started, starting another throws.
 *
 * All calls are synchronous: they return when the engine has done the work.
 */
export class Engine {
  /** Names the directory, which must exist; the current one if none is given. Starts nothing. */
  constructor(directory?: string);

  /**
   * Loads the directory's tables, and returns this engine.
   *
   * Throws VelmoraError when the process has a started engine, when another process uses the
   * directory, when its files cannot be loaded, or when there is no library; the system's error
   * when the directory cannot be entered.
   */
  start(): this;

  /**
   * Saves everything and stops. Stopping an engine that is not started does nothing.
   *
   * Throws VelmoraError when saving failed. Nothing is lost then, and the engine stays started.
   */
  stop(): void;

  /**
   * Runs one command, each "?" outside its literals replaced by the value of its place.
   *
   * Throws VelmoraError with the engine's message when the command failed. A value that no command
   * can carry is refused with "Error: Parameter N ..." and nothing is run. A value of another type,
   * a string with half a surrogate pair, and a command with a NUL throw TypeError.
   */
  query(text: string, ...values: Bindable[]): Answer;
}

/** The version of libvelmora, such as "0.1.0". */
export function libraryVersion(): string;
