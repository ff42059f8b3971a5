/* cc tour.c -o tour $(pkg-config --cflags --libs velmora) && ./tour */
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "velmora/velmora.h"

static velmora_db *db;
static velmora_result *result; /* of the last command; null if that failed */

static velmora_value text(const char *bytes) {
  return (velmora_value){.type = VELMORA_TEXT, .text = bytes, .text_size = strlen(bytes)};
}

/* Runs a command with a value for each "?". */
static void run(const char *command, const velmora_value *values, size_t count) {
  velmora_error *error;
  velmora_result_destroy(result);
  int code = velmora_run(db, command, strlen(command), values, count, &result, &error);
  if (code != VELMORA_OK && code != VELMORA_EXISTS)
    printf("error %d at byte %d: %s\n", code, (int)velmora_error_offset(error),
           velmora_error_text(error));
  velmora_error_destroy(error);
}

int main(void) {
  if (velmora_open("tour.db", 7, NULL, &db, NULL) != VELMORA_OK) return 1;
  run("CREATE TABLE users id ApexInt name string plan string 2", NULL, 0);
  velmora_value user[] = {text("Ada"), text("trial"), text("basic")};
  run("INSERT INTO users name = ? plan = ? --> ? @ 14 d", user, 3);
  velmora_value id = {.type = VELMORA_INTEGER};
  velmora_result_identity(result, &id.integer);
  run("SELECT plan FROM users WHERE id = ?", &id, 1);
  size_t size;
  const char *plan = velmora_result_text(result, 0, 0, &size);
  velmora_timed timed = {.size = sizeof timed};
  velmora_result_timed(result, 0, 0, &timed);
  printf("%.*s, then %.*s in %.0f days\n", (int)size, plan, (int)timed.next.text_size,
         timed.next.text, difftime(timed.change_second, time(NULL)) / 86400);
  run("BEGIN", NULL, 0);
  run("DELETE FROM users", NULL, 0);
  run("ROLLBACK", NULL, 0); /* or COMMIT */
  run("SELECT name FROM user", NULL, 0);
  velmora_result_destroy(result);
  return velmora_close(db, NULL);
}
