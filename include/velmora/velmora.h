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
 * Exceptions: the functions are declared as C, but the engine is C++ and some failures leave as C++
 * exceptions, as said at each function. A host written in C must avoid what raises them; a host in
 * C++ wraps its calls.
 */
#ifndef VELMORA_VELMORA_H
#define VELMORA_VELMORA_H

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

#ifdef __cplusplus
}
#endif

#endif
