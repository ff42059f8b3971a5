// The guarded exported functions, for hosts that cannot catch C++ exceptions or share one answer
// between threads: the plain functions' engine, with every failure told, every answer a copy and
// every answer valid JSON, and a number that does not convert named with its place. Binding values
// and escaping texts are left to value_binding.h and json_text.h.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "engine.h"
#include "number.h"
#include "text.h"
#include "value_binding.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

constexpr int succeeded = 0;
constexpr int failed = 1;

// Ready-made, since there is no memory to make it with.
constexpr std::string_view outOfMemory =
    "{\n  \"success\": false,\n  \"message\": \"Error: Out of memory\",\n  \"rows_affected\": 0\n}";

// A copy for velmora_free, or null when memory is out.
char* copyOf(std::string_view text) noexcept {
  auto* const copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

// A text or a name for a message: cut when it is long, its control bytes in hexadecimal.
std::string quoted(std::string_view text) {
  constexpr std::size_t mostBytes = 60;
  std::size_t size = std::min(text.size(), mostBytes);
  const auto isInCharacter = [&] {
    return (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80;
  };
  while (size > 0 && size < text.size() && isInCharacter()) --size;
  const std::string shown = "'" + printable(text.substr(0, size));
  return shown + (size < text.size() ? "...'" : "'");
}

// The message of a failed conversion: what failed, with the text, and where that stands.
std::string told(std::string_view what, const FailedConversion& failure) {
  std::string message(what);
  message += ": ";
  message += failure.text == missingValue ? "null" : quoted(failure.text);
  if (failure.table.empty()) return message;
  message += failure.row ? " in" : " for";
  message += " table " + quoted(failure.table) + ", column " + quoted(failure.column);
  if (failure.row) message += ", row " + std::to_string(*failure.row);
  return message;
}

// The text of the exception being handled; lets std::bad_alloc pass.
std::string textOfFailure() {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const InvalidNumber& error) {
    return told("Text cannot be read as a number", error);
  } catch (const NumberOutOfRange& error) {
    return told("Number is out of range", error);
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "Unknown failure";
  }
}

ResultSet notStarted() {
  ResultSet result;
  result.success = false;
  result.message = "Engine not started.";
  return result;
}

ResultSet runCommand(const BoundCommand& command) {
  const std::lock_guard lock(engine_mutex);
  if (global_parser == nullptr) return notStarted();
  return global_parser->handleCommand(command.text, {JsonStyle::valid}, command.floats);
}

// What the command that makeCommand() gives is answered; its failures are answers too.
template <typename MakeCommand>
ResultSet resultOf(MakeCommand makeCommand) {
  try {
    return runCommand(makeCommand());
  } catch (...) {
    return refused(textOfFailure());
  }
}

template <typename MakeCommand>
char* answerTo(MakeCommand makeCommand) noexcept {
  try {
    const TextBuffer json = renderJson(resultOf(makeCommand), JsonStyle::valid);
    if (char* const copy = copyOf(json.view())) return copy;
  } catch (...) {
    // Only std::bad_alloc comes here; the answer to it stands below.
  }
  return copyOf(outOfMemory);
}

// The status of a start or a stop, with a message for a failure.
template <typename Change>
int statusOf(Change change, char** message) noexcept {
  if (message != nullptr) *message = nullptr;
  try {
    const std::lock_guard lock(engine_mutex);
    change();
    return succeeded;
  } catch (...) {
    if (message == nullptr) return failed;
    try {
      *message = copyOf(textOfFailure());
    } catch (...) {
      *message = copyOf("Out of memory");
    }
    return failed;
  }
}

std::string requiredText(const char* text) {
  if (text == nullptr) throw std::runtime_error("Command is null");
  return text;
}

}  // namespace
}  // namespace velmora

extern "C" {

int velmora_start(char** message) {
  const auto start = [] {
    if (velmora::global_parser != nullptr) return;
    velmora::stopEngine();  // frees what an earlier failed start has left
    try {
      velmora::startEngine();
    } catch (...) {
      velmora::stopEngine();
      throw;
    }
  };
  return velmora::statusOf(start, message);
}

int velmora_stop(char** message) { return velmora::statusOf(velmora::stopEngine, message); }

char* velmora_query(const char* text) {
  return velmora::answerTo([=] { return velmora::BoundCommand{velmora::requiredText(text), {}}; });
}

char* velmora_query_bound(const char* text, const velmora_value* values, size_t count) {
  return velmora::answerTo([=] {
    const std::string command = velmora::requiredText(text);
    if (values == nullptr && count > 0) throw std::runtime_error("Values are null");
    return velmora::bindValues(command, std::span(values, count));
  });
}

void velmora_free(char* text) { std::free(text); }

const char* velmora_version(void) { return VELMORA_VERSION; }

}  // extern "C"
