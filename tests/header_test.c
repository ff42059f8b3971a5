/*
 * Proves that the public header is C and that a C program links with the shared library: compiled
 * as C99, with every declared function called, in a temporary directory. What the functions do in
 * every case is left to the unit tests.
 */
#define _XOPEN_SOURCE 700 /* for mkdtemp */
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <velmora/velmora.h>

static int failures = 0;

static void expect_text(const char *expected, const char *actual) {
  if (actual != NULL && strcmp(actual, expected) == 0) return;
  fprintf(stderr, "expected %s\nactual   %s\n", expected, actual == NULL ? "(null)" : actual);
  ++failures;
}

static void expect_number(int64_t expected, int64_t actual) {
  if (actual == expected) return;
  fprintf(stderr, "expected %ld\nactual   %ld\n", (long)expected, (long)actual);
  ++failures;
}

/* The error by its address, so that it is read after the call. */
static void expect_code(int expected, int code, velmora_error **error) {
  if (code != expected) {
    fprintf(stderr, "expected code %d, got %d: %s\n", expected, code,
            *error == NULL ? "(null)" : velmora_error_text(*error));
    ++failures;
  }
  velmora_error_destroy(*error);
}

static void expect_success(int code, velmora_error **error) {
  expect_code(VELMORA_OK, code, error);
}

static void call_plain_functions(void) {
  expect_text("{\"success\": false, \"message\": \"Engine not started.\"}",
              ExecuteQuery("SELECT a FROM t"));
  StartEngine();
  expect_text("{\n  \"success\": true,\n  \"message\": \"success!\",\n  \"rows_affected\": 0\n}",
              ExecuteQuery("CREATE TABLE t n int x float b bool s string"));
  StopEngine();
  StopEngine(); /* Stopping a stopped engine does nothing. */
}

static velmora_value text_value(const char *text) {
  velmora_value value = {VELMORA_TEXT, 0, 0, 0, NULL, 0};
  value.text = text;
  value.text_size = strlen(text);
  return value;
}

static velmora_result *run(velmora_db *db, const char *text) {
  velmora_result *result = NULL;
  velmora_error *error = NULL;
  int code = velmora_run(db, text, strlen(text), NULL, 0, &result, &error);
  expect_success(code, &error);
  return result;
}

static void insert_rows(velmora_db *db) {
  static const char insert[] = "INSERT INTO t n = ? x = ? b = ? s = ?";
  velmora_value values[8] = {{VELMORA_INTEGER, 3, 0, 0, NULL, 0},
                             {VELMORA_REAL, 0, 1.5, 0, NULL, 0},
                             {VELMORA_BOOLEAN, 0, 0, 1, NULL, 0},
                             {VELMORA_NULL, 0, 0, 0, NULL, 0}};
  velmora_command command = {insert, sizeof insert - 1, NULL, 4};
  velmora_statement *statement = NULL;
  velmora_result *result = NULL;
  velmora_error *error = NULL;
  int code;

  values[3] = text_value("O'Brien's \"x\"");
  memcpy(values + 4, values, 4 * sizeof values[0]);
  command.values = values;
  code = velmora_run_batch(db, &command, 1, NULL, &error);
  expect_success(code, &error);
  code = velmora_prepare(db, insert, sizeof insert - 1, &statement, &error);
  expect_success(code, &error);
  expect_number(4, (int64_t)velmora_statement_parameters(statement));
  code = velmora_bind(statement, 1, values, &error);
  expect_success(code, &error);
  velmora_clear_bindings(statement);
  code = velmora_statement_run(statement, NULL, &error);
  expect_success(code, &error);
  code = velmora_statement_run_many(statement, values, 2, &result, &error);
  expect_success(code, &error);
  expect_number(2, velmora_result_rows_affected(result));
  velmora_result_destroy(result);
  expect_code(VELMORA_IN_USE, velmora_close(db, &error), &error);
  velmora_statement_destroy(statement);
}

static void read_rows(velmora_db *db) {
  velmora_result *result = run(db, "SELECT * FROM t");
  velmora_timed timed;
  size_t length = 0;

  timed.size = sizeof timed;
  expect_number(5, (int64_t)velmora_result_columns(result));
  expect_number(4, (int64_t)velmora_result_rows(result));
  expect_text("x", velmora_result_column_name(result, 2, &length));
  expect_text("float", velmora_result_column_declared_type(result, 2, NULL));
  expect_number(VELMORA_REAL, velmora_result_column_type(result, 2));
  expect_number(VELMORA_INTEGER, velmora_result_type(result, 0, 1));
  expect_number(3, velmora_result_integer(result, 0, 1));
  if (velmora_result_real(result, 0, 2) != 1.5) ++failures;
  expect_number(1, velmora_result_boolean(result, 0, 3));
  if (strncmp(velmora_result_text(result, 0, 4, &length), "O'Brien's \"x\"", 13) != 0) ++failures;
  expect_number(13, (int64_t)length);
  expect_number(1, velmora_result_is_null(result, 1, 1));
  expect_number(0, velmora_result_timed(result, 0, 1, &timed));
  expect_text("", velmora_result_message(result, &length));
  expect_number(0, velmora_result_identity(result, NULL));
  expect_number(0, velmora_result_next_change(result, NULL));
  velmora_result_destroy(result);
  result = run(db, "SELECT x FROM t WHERE n = 3 LIMIT 1");
  expect_text(
      "{\"success\": true, \"message\": \"\", \"rows_affected\": 1, \"columns\": [\"x\"], "
      "\"data\": [{\"x\": 1.5}], \"next_change\": null}",
      velmora_result_json(result, &length));
  velmora_result_destroy(result);
}

static void fail(velmora_db *db) {
  velmora_error *error = NULL;
  expect_number(VELMORA_NOT_FOUND, velmora_run(db, "SELECT q FROM t", 15, NULL, 0, NULL, &error));
  expect_number(VELMORA_NOT_FOUND, velmora_error_code(error));
  if (strlen(velmora_error_text(error)) == 0) ++failures;
  expect_number(7, velmora_error_offset(error));
  expect_text("t", velmora_error_table(error));
  expect_text("q", velmora_error_column(error));
  expect_number(0, velmora_error_system(error));
  expect_number(0, velmora_error_process(error));
  velmora_error_destroy(error);
}

static void call_handles(void) {
  velmora_options options = {0};
  velmora_db *db = NULL;
  velmora_error *error = NULL;
  int major, minor, patch;

  options.size = sizeof options;
  options.flags = VELMORA_CREATE | VELMORA_EXCLUSIVE;
  expect_success(velmora_open("base", 4, &options, &db, &error), &error);
  velmora_result_destroy(run(db, "CREATE TABLE t id ApexInt n int x float b bool s string"));
  insert_rows(db);
  read_rows(db);
  fail(db);
  velmora_interrupt(db);
  expect_success(velmora_checkpoint(db, &error), &error);
  expect_success(velmora_backup(db, "copy", 4, &error), &error);
  expect_success(velmora_close(db, &error), &error);
  expect_success(velmora_check("copy", 4, NULL, NULL, NULL, &error), &error);
  expect_text(VELMORA_VERSION, velmora_version());
  velmora_version_numbers(&major, &minor, &patch);
  expect_number(VELMORA_VERSION_MINOR, minor);
}

static int remove_entry(const char *path, const struct stat *status, int kind, struct FTW *place) {
  (void)status;
  (void)kind;
  (void)place;
  return remove(path);
}

int main(void) {
  char directory[] = "/tmp/velmora_header_test.XXXXXX";

  if (mkdtemp(directory) == NULL || chdir(directory) != 0) return 1;
  call_plain_functions();
  call_handles();
  if (nftw(directory, remove_entry, 8, FTW_DEPTH | FTW_PHYS) != 0) ++failures;
  return failures == 0 ? 0 : 1;
}
