/*
 * velmora: an embedded relational database engine that keeps its tables in memory.
 *
 * There are two sets of functions:
 *
 * - velmora_open, velmora_run and their like: the handles, for every new program. Any number of
 *   databases can be open, each a directory of its own. A command that fails has changed nothing,
 *   says so by a number, and is explained by an object; what a command does not understand it
 *   refuses; values are bound to commands, and read from results by their types.
 *
 *       velmora_db* db;
 *       velmora_result* result;
 *       if (velmora_open("lamps", 5, NULL, &db, NULL) != VELMORA_OK) ...
 *       velmora_run(db, "SELECT name FROM lamps", 22, NULL, 0, &result, NULL);
 *
 * - StartEngine, ExecuteQuery, StopEngine: the plain functions. A process has one plain engine. A
 *   host starts it, hands it command texts, reads each answer as a JSON text, and stops it. The
 *   engine keeps its files in the directory that was current when it was started, and goes on using
 *   that directory when the host changes its own.
 *
 *       StartEngine();
 *       puts(ExecuteQuery("CREATE TABLE lamps name string colour string 3"));
 *       puts(ExecuteQuery("INSERT INTO lamps name = 'north' colour = 'red' --> 'green' @ 30 s c"));
 *       puts(ExecuteQuery("SELECT name, colour FROM lamps"));
 *       StopEngine();
 *
 *   They may be called from any thread; calls run one at a time. They are declared as C, but the
 *   engine is C++ and some failures leave as C++ exceptions, as said at each function; a host in
 *   C++ wraps its calls. Answers are shared, and texts stand in them unescaped.
 */
#ifndef VELMORA_VELMORA_H
#define VELMORA_VELMORA_H

#include <stddef.h>
#include <stdint.h>

/* The version of this header; velmora_version gives that of the library. */
#define VELMORA_VERSION "0.1.0"
#define VELMORA_VERSION_MAJOR 0
#define VELMORA_VERSION_MINOR 1
#define VELMORA_VERSION_PATCH 0

#ifdef __cplusplus
extern "C" {
#endif

/* ---- The plain functions ---- */

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

/*
 * ---- The handles ----
 *
 * What holds for all of them:
 *
 * - A function that can fail returns an int: VELMORA_OK, which is 0, or a number of velmora_code.
 *   What it hands out through a pointer it sets to null when it fails. No C++ exception leaves it.
 * - Its last parameter, `error`, is null or where to put an object that explains the failure; it is
 *   set to null on success, and when there is no memory for the object. It is the caller's, until
 *   velmora_error_destroy.
 * - A command that fails has changed nothing, in memory or in the files, unless something else is
 *   said at the function.
 * - Texts that are given are a pointer and a length in bytes, in UTF-8, need no zero byte behind
 *   them, and are copied before the call returns. A null pointer is fine where the length is 0.
 * - Texts that are handed out are borrowed from the object that they were asked of, and stay as
 * they are until that is destroyed.
 * - Each kind of object has one function that destroys it, which does nothing for null.
 * - Threads: a database may be used from any number of threads at once, a statement by one at a
 *   time, a result and an error, which never change, by any number.
 * - Null where an object must be given is VELMORA_MISUSE, or for functions that return no code, 0,
 *   null or nothing done.
 */

typedef struct velmora_db velmora_db;
typedef struct velmora_statement velmora_statement;
typedef struct velmora_result velmora_result;
typedef struct velmora_error velmora_error;

/* How a call ended. A number is never given another meaning; new ones may be added. */
typedef enum velmora_code {
  VELMORA_OK = 0,
  VELMORA_MISUSE = 1,         /* a call that this header rules out */
  VELMORA_BUSY = 2,           /* the directory is in use, or another thread's transaction lasts */
  VELMORA_IS_READ_ONLY = 3,   /* a change of a database that was opened to be read */
  VELMORA_NOT_FOUND = 4,      /* an unknown table, column, prefix, link, listener or database */
  VELMORA_EXISTS = 5,         /* what is to be created is there */
  VELMORA_DUPLICATE = 6,      /* a key that another row has */
  VELMORA_MISSING_PARENT = 7, /* a link without its parent row */
  VELMORA_RESTRICTED = 8,     /* a change that would leave rows without their parents */
  VELMORA_WRONG_TYPE = 9,     /* a value of another type than its column's */
  VELMORA_RANGE = 10,         /* a value that does not fit; a text that is not UTF-8 */
  VELMORA_SYNTAX = 11,        /* a command that is none */
  VELMORA_FULL = 12,          /* no room left: the disk, the identity numbers */
  VELMORA_CORRUPT = 13,       /* files that are not what was written */
  VELMORA_IO = 14,            /* the system refused */
  VELMORA_NO_MEMORY = 15,
  VELMORA_INTERRUPTED = 16, /* by velmora_interrupt or a progress callback */
  VELMORA_TRANSACTION = 17, /* a transaction is open that must not be, or none is */
  VELMORA_IN_USE = 18,      /* a database that still has statements */
  VELMORA_INTERNAL = 19     /* a fault of the engine's own */
} velmora_code;

/* What a value is; each type but null has its member of velmora_value. */
typedef enum velmora_type {
  VELMORA_NULL = 0,
  VELMORA_INTEGER = 1,
  VELMORA_REAL = 2,
  VELMORA_BOOLEAN = 3,
  VELMORA_TEXT = 4
} velmora_type;

/* A value. Only the member of its type is read; all zeros is null. */
typedef struct velmora_value {
  int type; /* a velmora_type */
  int64_t integer;
  double real;      /* finite */
  int boolean;      /* 0 is false, all else true */
  const char* text; /* in UTF-8, without zero bytes, and not ended by one */
  size_t text_size; /* in bytes */
} velmora_value;

/* ---- What went wrong ---- */

/* The number that the call has returned; VELMORA_OK for null. */
int velmora_error_code(const velmora_error* error);
/* What went wrong, for a person; ended by a zero byte, and not empty. Borrowed. Null for null. */
const char* velmora_error_text(const velmora_error* error);
/* Where in the command's text the word stands that is to blame, in bytes; -1: nowhere. */
int64_t velmora_error_offset(const velmora_error* error);
/* The table and the column that are concerned, ended by a zero byte; empty: none. Borrowed. */
const char* velmora_error_table(const velmora_error* error);
const char* velmora_error_column(const velmora_error* error);
/* The system's errno; 0: the system has refused nothing. */
int velmora_error_system(const velmora_error* error);
/* With VELMORA_BUSY the id of the process that holds the directory; 0: not known. */
int64_t velmora_error_process(const velmora_error* error);
void velmora_error_destroy(velmora_error* error);

/* ---- Databases ---- */

/* Flags of velmora_options; they may be added up, but for the two that rule others out. */
enum {
  VELMORA_READ_ONLY = 1, /* changes nothing on the disk; goes with no other flag */
  VELMORA_CREATE = 2,    /* makes the directory and an empty database where there is none */
  VELMORA_EXCLUSIVE = 4, /* with VELMORA_CREATE: there must be none */
  VELMORA_REPAIR = 8     /* opens what is damaged as far as that can be, keeps a copy of the damaged
                            files, and tells the log callback what is lost */
};

/* What a change needs before it is answered. */
enum {
  VELMORA_DURABILITY_ALWAYS = 0,   /* it is on the disk: a power cut loses nothing */
  VELMORA_DURABILITY_EVERYSEC = 1, /* a power cut loses at most the last second */
  VELMORA_DURABILITY_OFF = 2       /* the system has it: the end of the process loses nothing */
};

enum { VELMORA_LOG_INFORMATION = 0, VELMORA_LOG_WARNING = 1, VELMORA_LOG_ERROR = 2 };

/* For transaction_wait_milliseconds. */
#define VELMORA_NO_LIMIT UINT32_MAX

/*
 * How a database is opened. Set size to sizeof(velmora_options) and what is not wanted to zero:
 *
 *     velmora_options options = {.size = sizeof options, .flags = VELMORA_CREATE};
 *
 * A smaller size, of an older header, leaves the members behind it at zero. A larger one is
 * accepted only if the bytes that this library does not know are zero.
 *
 * Callbacks get the context, must not throw, and must not call functions with the same database
 * other than velmora_interrupt: such calls are VELMORA_MISUSE. They are called on the thread whose
 * call needs them, by several threads at once, or by the engine's own. Texts that they are given
 * are theirs until they return.
 */
typedef struct velmora_options {
  uint32_t size;
  uint32_t flags;
  uint32_t durability;
  uint32_t open_wait_milliseconds;        /* for a directory that is in use; 0: not at all */
  uint32_t transaction_wait_milliseconds; /* for another thread's transaction; 0: 5000 */
  void* context;
  /* Told what a person who runs the program may want to know; level: VELMORA_LOG_... . Null: it is
     told to nobody. Nothing is ever printed. */
  void (*log)(void* context, int level, const char* text, size_t length);
  /* Called now and then while something takes long: how much of how much is done. What: "load",
     "replay", "checkpoint" or "backup". Anything but 0 stops it, with VELMORA_INTERRUPTED. */
  int (*progress)(void* context, const char* what, size_t length, uint64_t done, uint64_t total);
  /* Gives the second that it is, since 1970. Null: the system's. */
  int64_t (*clock)(void* context);
} velmora_options;

/*
 * Opens the database of a directory: loads its tables and runs what its log holds. Only one process
 * has a directory open to write, and has it open once.
 *
 * path: the directory. A relative one is looked up now; the process may change its own later.
 * options: null for VELMORA_CREATE and zeros.
 * db: gets the database, the caller's until velmora_close.
 *
 * VELMORA_BUSY: the directory is in use; the error has the process. VELMORA_NOT_FOUND: there is no
 * database and VELMORA_CREATE is not given. VELMORA_EXISTS: there is one and VELMORA_EXCLUSIVE is
 * given. VELMORA_CORRUPT: files are not what was written; nothing has been changed. VELMORA_IO,
 * VELMORA_INTERRUPTED. VELMORA_MISUSE: options that do not go together, or are unknown; a path that
 * is empty or holds a zero byte.
 */
int velmora_open(const char* path, size_t length, const velmora_options* options, velmora_db** db,
                 velmora_error** error);

/*
 * Closes a database: rolls an open transaction back, writes a checkpoint, lets the directory go,
 * and destroys the object. What fails at that goes to the log callback and loses nothing: the log
 * holds every change. No other call with the database may be under way. Results and errors outlive
 * it.
 *
 * VELMORA_IN_USE: it still has statements, and stays open. Null succeeds.
 */
int velmora_close(velmora_db* db, velmora_error** error);

/*
 * Runs one command, each "?" outside quoted texts standing for the value of its place.
 *
 * values: count of them, one for each "?"; null where count is 0.
 * result: null, or where to put the result, the caller's until velmora_result_destroy.
 *
 * BEGIN opens a transaction, which is the calling thread's: until its COMMIT or ROLLBACK the
 * commands of other threads wait, for as long as the options say, and are VELMORA_BUSY then.
 *
 * Any code but VELMORA_IN_USE can come. VELMORA_MISUSE: not as many values as "?", or a value whose
 * type is unknown. VELMORA_SYNTAX: a text that is no command. VELMORA_RANGE: a value that is a
 * float and not finite, or a text with a zero byte or not in UTF-8.
 */
int velmora_run(velmora_db* db, const char* text, size_t length, const velmora_value* values,
                size_t count, velmora_result** result, velmora_error** error);

/* One command of a batch, as the parameters of velmora_run. */
typedef struct velmora_command {
  const char* text;
  size_t length;
  const velmora_value* values;
  size_t count;
} velmora_command;

/* 1 while the calling thread's transaction is open; 0 for null. */
int velmora_in_transaction(const velmora_db* db);

/*
 * Runs commands as one transaction: all of them or none. The result is that of the last one. None
 * may begin or end a transaction, be CHECKPOINT or VACUUM: VELMORA_TRANSACTION. Where the thread's
 * transaction is open they become part of it, all or none. A failure is that of one command, and
 * its offset is in that command's text.
 */
int velmora_run_batch(velmora_db* db, const velmora_command* commands, size_t count,
                      velmora_result** result, velmora_error** error);

/*
 * Writes all that has changed to the table files and empties the log. Other threads' changes wait
 * meanwhile, their reads do not. A checkpoint that fails has changed nothing that counts.
 * VELMORA_TRANSACTION: the thread's transaction is open.
 */
int velmora_checkpoint(velmora_db* db, velmora_error** error);

/*
 * Copies the database, as it is at one moment, into the directory path, which must be empty or not
 * there (VELMORA_EXISTS). Others work on meanwhile. What a copy that fails has written is taken
 * away.
 */
int velmora_backup(velmora_db* db, const char* path, size_t length, velmora_error** error);

/*
 * Has every command of the database that is running or waiting, on whatever thread, fail with
 * VELMORA_INTERRUPTED. Commands that begin later are not concerned. May be called at any time
 * before velmora_close, also from a callback, but not from a signal handler.
 */
void velmora_interrupt(velmora_db* db);

/*
 * Told of a fault in the files: the file's name, where in it (bytes; -1: the file as a whole), and
 * what that means for a person. Both texts end with a zero byte, and are the callback's until it
 * returns. It must not throw.
 */
typedef void (*velmora_fault)(void* context, const char* file, int64_t offset, const char* meaning);

/*
 * Reads the database of a directory that nobody has open, changes nothing, and reports each fault.
 *
 * options: null, or of which the callbacks progress, with "check", and clock are called.
 * report: null, or called for each fault, with the context.
 *
 * VELMORA_OK: there is no fault. VELMORA_CORRUPT: there are; the error says how many. VELMORA_BUSY,
 * VELMORA_NOT_FOUND, VELMORA_IO, VELMORA_INTERRUPTED.
 */
int velmora_check(const char* path, size_t length, const velmora_options* options,
                  velmora_fault report, void* context, velmora_error** error);

/* What a database has on the disk. */
typedef struct velmora_disk {
  uint32_t size;           /* to be set to sizeof(velmora_disk) before the call */
  int64_t process;         /* that has the directory open; 0: none, or not known */
  uint64_t file_bytes;     /* of all files, the log's among them */
  uint64_t log_bytes;      /* since the last checkpoint */
  uint64_t log_records;    /* in there: changes, a transaction counting as one */
  uint64_t recent_records; /* of these the ones not older than recent_second */
  uint64_t records;        /* that the log ever had */
  int64_t last_second;     /* the latest that a change has been made at */
} velmora_disk;

/* Told of a file, and of the table whose it is, or an empty text. Both end with a zero byte, and
   are the callback's until it returns. It must not throw. */
typedef void (*velmora_disk_file)(void* context, const char* file, const char* table,
                                  uint64_t bytes);

/*
 * Looks at the files of a database, without opening it: also beside the program that has it open,
 * whose commands it neither waits for nor holds up.
 *
 * report: null, or called for each file, with the context.
 *
 * VELMORA_NOT_FOUND, VELMORA_IO. VELMORA_MISUSE: a wrong size.
 */
int velmora_stat(const char* path, size_t length, int64_t recent_second, velmora_disk* disk,
                 velmora_disk_file report, void* context, velmora_error** error);

/* ---- Statements: commands that are parsed once and run often ---- */

/*
 * Parses a command. The tables and columns that it names are looked up when it is run, so they may
 * come and go meanwhile.
 *
 * statement: gets the statement, the caller's until velmora_statement_destroy, and to be destroyed
 * before its database is closed.
 */
int velmora_prepare(velmora_db* db, const char* text, size_t length, velmora_statement** statement,
                    velmora_error** error);

/* The number of "?" in the command. */
size_t velmora_statement_parameters(const velmora_statement* statement);

/* What a command does. */
typedef enum velmora_kind {
  VELMORA_READS = 0,    /* SELECT, SHOW */
  VELMORA_CHANGES = 1,  /* rows, tables, links, listeners: what a transaction is made of */
  VELMORA_CONTROLS = 2, /* BEGIN, COMMIT, ROLLBACK */
  VELMORA_MAINTAINS = 3 /* CHECKPOINT, VACUUM: only outside of transactions */
} velmora_kind;
/* VELMORA_READS for null. */
velmora_kind velmora_statement_kind(const velmora_statement* statement);

/*
 * Sets the value of a parameter, counted from 1, for all runs to come. A parameter that has not
 * been bound is null. VELMORA_MISUSE: there is no such parameter. On a failure the parameter keeps
 * the value that it had.
 */
int velmora_bind(velmora_statement* statement, size_t index, const velmora_value* value,
                 velmora_error** error);

/* Makes every parameter null. */
void velmora_clear_bindings(velmora_statement* statement);

/* Runs the command with the values bound; as velmora_run. The values stay bound. */
int velmora_statement_run(velmora_statement* statement, velmora_result** result,
                          velmora_error** error);

/*
 * Runs a command that changes something once for each row of values, all as one transaction; the
 * values bound are neither used nor changed. values: row after row, each with a value for every
 * parameter. The result is that of the last run, with the rows affected by all.
 */
int velmora_statement_run_many(velmora_statement* statement, const velmora_value* values,
                               size_t row_count, velmora_result** result, velmora_error** error);

void velmora_statement_destroy(velmora_statement* statement);

/* ---- Results ----
 *
 * Rows and columns are counted from 0. Where there is none, or where the value is of another type
 * than is asked for, a function gives 0 or null.
 */

size_t velmora_result_columns(const velmora_result* result);
size_t velmora_result_rows(const velmora_result* result);

/* Both end with a zero byte; length: null, or gets the length without it. Borrowed. The declared
   type is that of the table's column, or of the one whose MIN or MAX it is, such as "string";
   empty for what is computed otherwise. */
const char* velmora_result_column_name(const velmora_result* result, size_t column, size_t* length);
const char* velmora_result_column_declared_type(const velmora_result* result, size_t column,
                                                size_t* length);
/* The type of the column's values; each of them may also be null. */
velmora_type velmora_result_column_type(const velmora_result* result, size_t column);

velmora_type velmora_result_type(const velmora_result* result, size_t row, size_t column);
/* 1 for null, and where there is no value. */
int velmora_result_is_null(const velmora_result* result, size_t row, size_t column);
int64_t velmora_result_integer(const velmora_result* result, size_t row, size_t column);
/* Of an integer the nearest double. */
double velmora_result_real(const velmora_result* result, size_t row, size_t column);
/* 1 for true. */
int velmora_result_boolean(const velmora_result* result, size_t row, size_t column);
/* In UTF-8, without a zero byte behind it; length: gets its length in bytes. Borrowed. */
const char* velmora_result_text(const velmora_result* result, size_t row, size_t column,
                                size_t* length);

/*
 * Writes the values of up to row_count rows, beginning with first_row, into the caller's array: row
 * after row, each with a value for every column, so that one call serves many rows. Their texts are
 * borrowed from the result. Returns how many rows it has written: fewer where the result ends.
 */
size_t velmora_result_values(const velmora_result* result, size_t first_row, size_t row_count,
                             velmora_value* values);

/* The values of one column, one behind another, each array `rows` long; if there are any, that of
   the column's type is not null. A null value has a 0, or no text, in its place. */
typedef struct velmora_column {
  uint32_t size; /* to be set to sizeof(velmora_column) before the call */
  int type;      /* a velmora_type */
  size_t rows;
  const int64_t* integers;
  const double* reals;
  const uint8_t* booleans; /* 0 or 1 */
  const char* texts;       /* of all rows, in UTF-8, without anything between them */
  const uint64_t* ends;    /* where in texts each row's text ends, which is where the next begins */
  const uint8_t* nulls;    /* 1 for null; a null pointer: no value is null */
} velmora_column;

/*
 * Hands out a column as arrays. They are made when a column is first asked for, and borrowed.
 *
 * VELMORA_NOT_FOUND: there is no such column. VELMORA_NO_MEMORY. VELMORA_MISUSE: a wrong size.
 */
int velmora_result_column(const velmora_result* result, size_t column, velmora_column* values,
                          velmora_error** error);

/* The rows that were answered, or changed. */
int64_t velmora_result_rows_affected(const velmora_result* result);
/* What the command has to say, often nothing; ended by a zero byte; length: null, or gets the
   length without it. Borrowed. */
const char* velmora_result_message(const velmora_result* result, size_t* length);
/* Whether the command was an INSERT that gave the row an identity number; value: null, or gets it.
 */
int velmora_result_identity(const velmora_result* result, int64_t* value);
/* Whether this answer becomes another by time alone; second: null, or gets when, in seconds since
   1970. Up to then, and as long as nobody changes the tables, it may be kept and shown. */
int velmora_result_next_change(const velmora_result* result, int64_t* second);

/* What becomes of a timed value. */
typedef struct velmora_timed {
  uint32_t size;         /* to be set to sizeof(velmora_timed) before the call */
  int cycles;            /* 1: its states follow each other for ever */
  int has_next;          /* 1: another state follows the one in force */
  int64_t change_second; /* when, in seconds since 1970; 0 where none follows */
  velmora_value next;    /* which; its text is borrowed from the result */
} velmora_timed;

/*
 * Whether the value is timed; then the members of `timed` are filled in, as far as its size goes,
 * and what is behind those that this library knows is set to zero. The state in force is the value
 * itself.
 */
int velmora_result_timed(const velmora_result* result, size_t row, size_t column,
                         velmora_timed* timed);

/*
 * The whole result as one valid JSON text (RFC 8259), ended by a zero byte:
 *
 *     {"success": true, "message": "", "rows_affected": 1, "columns": ["name"],
 *      "data": [{"name": "north"}], "next_change": 1800000000}
 *
 * "columns" and "data" are there when rows are answered, and "next_change" with them, null for
 * never; "identity" where there is one. Floats stand in the shortest form that reads back as the
 * same.
 *
 * length: null, or gets the length. The text is made by the first call, and borrowed. Null when
 * there is no memory for it.
 */
const char* velmora_result_json(const velmora_result* result, size_t* length);

void velmora_result_destroy(velmora_result* result);

/* ---- Versions ---- */

/* The version of the library, such as "0.1.0". The text is the library's. */
const char* velmora_version(void);
/* The same as numbers; each may be null. */
void velmora_version_numbers(int* major, int* minor, int* patch);

#ifdef __cplusplus
}
#endif

#endif
