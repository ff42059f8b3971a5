/* The smallest host, in plain C:
 *
 *     cc hello.c -o hello $(pkg-config --cflags --libs velmora) && ./hello
 *
 * Where velmora is built but not installed, PKG_CONFIG_PATH has to name the build directory.
 *
 * Each answer is printed before the next command replaces it.
 */
#include <stdio.h>

#include "velmora/velmora.h"

int main(void) {
  StartEngine();
  puts(ExecuteQuery("CREATE TABLE lamps name string colour string 3"));
  puts(ExecuteQuery("INSERT INTO lamps name = 'north' colour = 'red' --> 'green' @ 30 s c"));
  puts(ExecuteQuery("SELECT name, colour FROM lamps"));
  StopEngine();
  return 0;
}
