/*
 * A feature-flag service in plain C: each flag switches itself at the time that it was given, and
 * the service only ever asks what is the case now. Every name comes from outside and is bound to
 * its command, so no name can say more than itself.
 *
 *   cc -std=c99 feature_flags.c -o flags $(pkg-config --cflags --libs velmora) && ./flags
 *
 * Where velmora is built but not installed, PKG_CONFIG_PATH has to name the build directory.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "velmora/velmora.h"

enum { HOUR = 3600, DAY = 24 * HOUR };

static velmora_value text(const char *bytes) {
  velmora_value value = {.type = VELMORA_TEXT};
  value.text = bytes;
  value.text_size = strlen(bytes);
  return value;
}

static velmora_value number(int64_t integer) {
  velmora_value value = {.type = VELMORA_INTEGER};
  value.integer = integer;
  return value;
}

static velmora_value truth(int boolean) {
  velmora_value value = {.type = VELMORA_BOOLEAN};
  value.boolean = boolean;
  return value;
}

static velmora_db *db;

/* Prints why something failed. */
static void tell(const char *what, velmora_error *error) {
  const char *text = error == NULL ? "out of memory" : velmora_error_text(error);
  fprintf(stderr, "%s: %s\n", what, text);
  velmora_error_destroy(error);
}

/* Runs a command; returns the number of rows that it found or changed, -1 when it failed. */
static long run(const char *command, const velmora_value *values, size_t count) {
  velmora_result *result;
  velmora_error *error;
  long rows;
  if (velmora_run(db, command, strlen(command), values, count, &result, &error) != VELMORA_OK) {
    tell("refused", error);
    return -1;
  }
  rows = (long)velmora_result_rows(result) + (long)velmora_result_rows_affected(result);
  velmora_result_destroy(result);
  return rows;
}

/* Gives a flag a state now and the opposite one in so many seconds, counted from `since`. */
static void set_flag(const char *name, int is_on, int64_t seconds, time_t since) {
  velmora_value update[5] = {truth(is_on), truth(!is_on), number(seconds), text(name),
                             number((int64_t)since)};
  velmora_value insert[5] = {text(name), truth(is_on), truth(!is_on), number(seconds),
                             number((int64_t)since)};
  if (run("UPDATE flags SET enabled = ? --> ? @ ? s WHERE name = ? #TIME# ?", update, 5) == 0) {
    run("INSERT INTO flags name = ? enabled = ? --> ? @ ? s #TIME# ?", insert, 5);
  }
}

static int is_on(const char *name) {
  velmora_value values[2] = {text(name), truth(1)};
  return run("SELECT name FROM flags WHERE name = ? && enabled = ?", values, 2) > 0;
}

static void show(const char *name) { printf("%s: %s\n", name, is_on(name) ? "on" : "off"); }

/* Opens the database, and makes the table unless it is there. */
static int start(void) {
  static const char create[] = "CREATE TABLE flags name string enabled bool 2";
  velmora_error *error;
  int code;
  if (velmora_open("flags.db", 8, NULL, &db, &error) != VELMORA_OK) {
    tell("cannot open", error);
    return 0;
  }
  code = velmora_run(db, create, sizeof create - 1, NULL, 0, NULL, NULL);
  return code == VELMORA_OK || code == VELMORA_EXISTS;
}

int main(void) {
  const time_t now = time(NULL);
  if (!start()) return EXIT_FAILURE;

  puts("-- on for two weeks from now; on for an hour, two hours ago; off until an hour ago");
  set_flag("beta search", 1, 14 * DAY, now);
  set_flag("happy hour", 1, HOUR, now - 2 * HOUR);
  set_flag("new checkout", 0, HOUR, now - 2 * HOUR);
  show("beta search");
  show("happy hour");
  show("new checkout");

  puts("-- names are only names, whatever they hold");
  set_flag("O'Brien's \"beta\"", 1, DAY, now);
  set_flag("x' enabled = true y = '", 0, DAY, now);
  show("O'Brien's \"beta\"");
  show("x' enabled = true y = '");

  puts("-- switched off early, and for good");
  {
    velmora_value values[2] = {truth(0), text("beta search")};
    run("UPDATE flags SET enabled = ? WHERE name = ?", values, 2);
  }
  show("beta search");

  return velmora_close(db, NULL) == VELMORA_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
