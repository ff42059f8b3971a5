/*
 * Proves that the public header is C and that a C program links with the shared library: compiled
 * as C99, with every declared function's address taken and the one call that needs no engine made.
 */
#include <stdio.h>
#include <string.h>
#include <velmora/velmora.h>

int main(void) {
  static const char expected[] = "{\"success\": false, \"message\": \"Engine not started.\"}";
  void (*start)(void) = StartEngine;
  void (*stop)(void) = StopEngine;
  const char *answer = ExecuteQuery("SELECT a FROM t");

  if (start == NULL || stop == NULL) return 1;
  if (strcmp(answer, expected) != 0) {
    fprintf(stderr, "expected %s\nactual   %s\n", expected, answer);
    return 1;
  }
  stop(); /* Stopping a stopped engine does nothing. */
  return 0;
}
