// A table of many columns.
#pragma once

#include "engine.h"

namespace bench {

// Makes and fills the table wide: a key, id, and 63 more columns, ints, texts and floats in turn.
void fillWide(Engine& engine, int rows);

}  // namespace bench
