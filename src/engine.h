// The process's one engine, as the plain exported functions (velmora.cpp, where it lives) and the
// guarded ones (guarded.cpp) share it. The rules of the locks stand in database/database.h.
#pragma once

#include <memory>
#include <mutex>

#include "parser/parser.h"

namespace velmora {

// Serialises every call of the exported functions; held around everything below.
extern std::mutex engine_mutex;

// Null while the engine is stopped, and after a start that failed while loading.
extern std::unique_ptr<Parser> global_parser;

// What StartEngine and StopEngine do. After a start that failed while loading, another start does
// nothing, and a stop frees without writing.
void startEngine();
void stopEngine();

}  // namespace velmora
