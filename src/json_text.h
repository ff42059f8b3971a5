// Texts as JSON strings: what has to be escaped or replaced so that any bytes become valid JSON as
// RFC 8259 defines it. Relies on nothing; where it is wanted is for result_set.h and its callers to
// decide.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// Whether a text may stand in a JSON string as it is: ASCII without quotes, backslashes and control
// characters.
bool isPlainJson(std::string_view text) noexcept;

// Appends what stands between the quotes of a JSON string. Each run of bytes that is no UTF-8
// becomes U+FFFD, one for each sequence that begins well and breaks off, one for any other byte.
void appendJsonText(std::string& out, std::string_view text);

}  // namespace velmora
