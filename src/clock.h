// The engine's wall clock: whole seconds since the Unix epoch.
//
// Everything that asks for the time asks here, so that a test can choose the second.
#pragma once

#include <cstdint>
#include <string_view>

namespace velmora {

// Stands behind a command's text, before the second at which it runs.
inline constexpr std::string_view clockMarker = " #TIME# ";

namespace clock {

using Source = std::int64_t (*)();

// The second it is: the source's, or time()'s. Each command asks once, at its beginning, and passes
// the answer to all it does.
std::int64_t now() noexcept;

// Replaces time() for the whole process; null brings it back. Safe beside readers in other threads.
void setSource(Source source) noexcept;

}  // namespace clock
}  // namespace velmora
