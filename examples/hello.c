/* The smallest host, in plain C: cc hello.c -lvelmora
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
