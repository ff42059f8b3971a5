/*
 * velmora: an embedded relational database engine that keeps its tables in memory.
 *
 * A process has one engine. A host starts it, hands it command texts, reads each answer as a JSON
 * text, and stops it. The engine keeps its files in the directory that was current when it was
 * started, and goes on using that directory when the host changes its own.
 *
 *     StartEngine();
 *     puts(ExecuteQuery("CREATE TABLE lamps name string colour string 3"));
 *     puts(ExecuteQuery("INSERT INTO lamps name = 'north' colour = 'red' --> 'green' @ 30 s c"));
 *     puts(ExecuteQuery("SELECT name, colour FROM lamps"));
 *     StopEngine();
 *
 * Threads: every function may be called from any thread; calls run one at a time.
 *
 * There are two sets of functions over that one engine, and a host may mix them:
 *
 * - StartEngine, ExecuteQuery, StopEngine: the plain ones. They are declared as C, but the engine
 *   is C++ and some failures leave as C++ exceptions, as said at each function; a host in C++
 *   wraps its calls. Answers are shared, and texts stand in them unescaped.
 * - velmora_start, velmora_query, velmora_query_bound, velmora_stop: the guarded ones, for hosts in
 *   C and in every other language. No exception leaves them, each answer is a copy, always valid
 *   JSON, and values are bound to a command rather than pasted into it.
 */
#ifndef VELMORA_VELMORA_H
#define VELMORA_VELMORA_H

#include <stddef.h>
#include <stdint.h>

/* The version of this header; velmora_version gives that of the library. */
#define VELMORA_VERSION "0.1.0"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Starts the engine in the current directory: loads its tables, links, listeners and scheduled
 * changes, and replays the write-ahead log. While loading it reports on standard output, in lines
 * that begin "[STORAGE] " or "[BOOTLOADER] ". Starting a started engine does nothing.
 *
 * Lets out, as C++ exceptions:
 * - std::runtime_error "Database directory is already in use" when another engine holds the
 *   directory. Nothing has been changed, and a later call tries again.
 * - std::runtime_error "Corrupt table file: NAME", or another error of the load. Nothing on disk
 *   has been changed. The engine then answers every command with "Engine not started." until
 *   StopEngine has been called, which writes nothing after such a start.
 */
void StartEngine(void);

/*
 * Runs one command and returns its answer as a JSON text ended by a zero byte.
 *
 * query: the command text, ended by a zero byte; not null (a null lets std::logic_error out).
 *
 * The text belongs to the engine and stays as it is until the next call of ExecuteQuery by any
 * thread; a host that shares the engine between threads copies it before the next call can happen.
 *
 * A command that fails is answered with "success": false and a message; what it had changed before
 * it failed stays changed where the command's description says so. When the engine is not started
 * the answer is {"success": false, "message": "Engine not started."}.
 *
 * Texts are put into the JSON as they are stored, without escaping.
 *
 * Lets out std::invalid_argument or std::out_of_range ("stoi", "stof", "stoll") when a number in
 * the command, or a stored text that has to be read as one, does not convert. The engine stays
 * usable.
 */
const char* ExecuteQuery(const char* query);

/*
 * Writes everything to the files (a checkpoint), then stops the engine and frees its memory. It can
 * be started again. Stopping a stopped engine does nothing; an engine whose start failed is freed
 * without writing.
 *
 * When the checkpoint fails (a full disk: std::runtime_error; a stored text that does not convert
 * to its column's type: std::invalid_argument or std::out_of_range) the exception is let out, the
 * files and the log stay as they were, and the engine stays started.
 */
void StopEngine(void);

/* What a bound value is; each type has its member of velmora_value. */
typedef enum velmora_type {
  VELMORA_INTEGER = 0,
  VELMORA_FLOAT = 1,
  VELMORA_BOOL = 2,
  VELMORA_TEXT = 3
} velmora_type;

/* A value to be bound. Only the members of its type are read. */
typedef struct velmora_value {
  velmora_type type;
  int64_t integer;
  double real;
  int boolean;      /* 0 is false, all else true */
  const char* text; /* bytes, not ended by a zero byte; may be null when there are none */
  size_t text_size; /* their number */
} velmora_value;

/*
 * Starts the engine as StartEngine does. Starting a started engine does nothing and succeeds.
 *
 * Returns 0, or another number when the engine could not be started: nothing on disk has been
 * changed then, everything is freed again, and a later call tries again.
 *
 * message: null, or where to put the text that says what failed, such as "Database directory is
 * already in use". It is set in every case: to null on success (and when memory is out), else to a
 * text for velmora_free.
 */
int velmora_start(char** message);

/*
 * Saves everything and stops the engine as StopEngine does. Stopping a stopped engine does nothing
 * and succeeds.
 *
 * Returns 0, or another number when the checkpoint failed: the files and the log stay as they were
 * then, and the engine stays started. message: as for velmora_start.
 */
int velmora_stop(char** message);

/*
 * Runs one command and returns its answer, a JSON text ended by a zero byte, which is the caller's
 * until it is handed to velmora_free. Null when there is no memory for even the shortest answer.
 *
 * text: the command, ended by a zero byte.
 *
 * Whatever goes wrong is an answer with "success": false: also what ExecuteQuery would let out as
 * an exception, a null text, and an engine that is not started. (After "Error: Out of memory" the
 * command may have been run or not.) An answer has the members "success", "message" and
 * "rows_affected", and "data" when it has rows, laid out as those of ExecuteQuery; but it is always
 * valid JSON (RFC 8259) in UTF-8. Quotes, backslashes and control characters in texts, column names
 * and messages are escaped, bytes that are not UTF-8 replaced by U+FFFD, and floats that are not
 * finite are null.
 *
 * Where ExecuteQuery lets out a conversion of a number, the message begins "Error: Text cannot be
 * read as a number: " or "Error: Number is out of range: ", and names the text and its place:
 *
 *     'TEXT' in table 'T', column 'C', row N    a value of a row. N counts the table's rows in the
 *                                               order in which they were inserted, deleted ones
 *                                               included, from 0; a row that is being inserted has
 *                                               the number that it would have got
 *     'TEXT' for table 'T', column 'C'          a literal of the command: what the column is
 *                                               compared with, a duration, a string's length
 *
 * Texts are cut to 60 bytes, with "..." behind them, control characters stand as \xNN, and null
 * stands for a value that was never given. velmora_start and velmora_stop have the same messages,
 * without the "Error: ".
 *
 * The text of ExecuteQuery's last answer stays as it is.
 */
char* velmora_query(const char* text);

/*
 * The same for a command with values: each "?" in the text that is not inside a quoted literal is
 * replaced by the value of its place, the first by values[0]. Texts from outside belong into
 * values, never into the command: literals have no escapes, so a quote in a pasted text would end
 * its literal, and what follows would be read as part of the command.
 *
 *     velmora_value values[2] = {{.type = VELMORA_TEXT, .text = name, .text_size = strlen(name)},
 *                                {.type = VELMORA_INTEGER, .integer = 3}};
 *     answer = velmora_query_bound("UPDATE lamps SET name = ? WHERE id = ?", values, 2);
 *
 * A value stands for one literal: of an assignment, a state, a duration, a filter, or the clock
 * behind " #TIME# ". Floats are rounded to the engine's 32 bits. The texts NULL and #/#? come back
 * as null.
 *
 * When a value cannot be carried by the command language, nothing is run and the answer's message
 * begins "Error: Parameter N ", counted from 1:
 * - a text with both kinds of quotes, with a zero byte, or with a clock marker that digits follow
 *   (" #TIME# 5"), which the engine looks for everywhere;
 * - an integer outside 32 bits;
 * - a float that is not finite, or that is too large or too small for the engine to read it back;
 * - a float for an int or ApexInt column, also as a state of a timed value, unless it is a whole
 *   number of 32 bits: 5.0 is stored as 5, 2.5 and 3e9 are refused ("Error: Parameter 2 is a float
 *   that int column 'n' cannot hold"). Numbers written in the command are not held to that, and a
 *   filter may compare an int column with any float.
 * So it is when there are not as many values as places ("Error: Command has 1 placeholder for 2
 * values").
 */
char* velmora_query_bound(const char* text, const velmora_value* values, size_t count);

/* Frees an answer or a message of the guarded functions; null is fine. */
void velmora_free(char* text);

/* The version of the library, such as "0.1.0". The text is the library's. */
const char* velmora_version(void);

#ifdef __cplusplus
}
#endif

#endif
