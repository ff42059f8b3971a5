// Texts between JavaScript, whose strings are of 16-bit units, and the engine, whose texts are
// UTF-8: exactly, or not at all. Half a surrogate pair has no UTF-8, and is refused.
#pragma once

#include <string>
#include <string_view>

#include "addon.h"

namespace velmora_node {

std::u16string utf16Of(napi_env env, napi_value string);
// Throws a TypeError that begins with what, also where the value is no string.
std::string utf8Of(napi_env env, napi_value string, const std::string& what);

// Puts the text behind what there is; false: it holds half a surrogate pair.
bool appendUtf8(std::string& to, std::u16string_view text);
// The text is valid UTF-8, as all of the engine's are.
void appendUtf16(std::u16string& to, std::string_view text);

bool isAscii(std::string_view text);

napi_value stringOf(napi_env env, std::string_view text);

}  // namespace velmora_node
