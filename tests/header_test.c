/*
 * Proves that the public header is C and that a C program links with the shared library: compiled
 * as C99, with every declared function called, in a temporary directory. What the functions do in
 * every case is left to the unit tests.
 */
#define _XOPEN_SOURCE 700 /* for mkdtemp */
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

static void expect_success(int status, char *message) {
  if (status == 0 && message == NULL) return;
  fprintf(stderr, "status %d: %s\n", status, message == NULL ? "(null)" : message);
  velmora_free(message);
  ++failures;
}

static void expect_answer(const char *expected, char *answer) {
  expect_text(expected, answer);
  velmora_free(answer);
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

static void call_guarded_functions(void) {
  static const char text[] = "O'Brien's";
  velmora_value values[4] = {{VELMORA_INTEGER, 3, 0, 0, NULL, 0},
                             {VELMORA_FLOAT, 0, 1.5, 0, NULL, 0},
                             {VELMORA_BOOL, 0, 0, 1, NULL, 0},
                             {VELMORA_TEXT, 0, 0, 0, text, sizeof text - 1}};
  char *message = NULL;

  expect_success(velmora_start(&message), message);
  expect_answer("{\n  \"success\": true,\n  \"message\": \"success!\",\n  \"rows_affected\": 1\n}",
                velmora_query_bound("INSERT INTO t n = ? x = ? b = ? s = ?", values, 4));
  expect_answer(
      "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 1,\n  \"data\": [\n"
      "    {\"n\": 3, \"x\": 1.5, \"b\": true, \"s\": \"O'Brien's\"}\n  ]\n}",
      velmora_query("SELECT * FROM t"));
  expect_success(velmora_stop(&message), message);
  expect_text(VELMORA_VERSION, velmora_version());
  velmora_free(NULL);
}

int main(void) {
  static const char *const files[] = {"t.bin", "t.del", "velmora.wal"};
  char directory[] = "/tmp/velmora_header_test.XXXXXX";
  size_t i;

  if (mkdtemp(directory) == NULL || chdir(directory) != 0) return 1;
  call_plain_functions();
  call_guarded_functions();
  for (i = 0; i < sizeof files / sizeof files[0]; ++i) unlink(files[i]);
  if (rmdir(directory) != 0) ++failures;
  return failures == 0 ? 0 : 1;
}
