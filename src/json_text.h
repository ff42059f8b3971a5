// Texts as JSON strings: what has to be escaped or replaced so that any bytes become valid JSON as
// RFC 8259 defines it.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// Appends what stands between the quotes of a JSON string. Each run of bytes that is no UTF-8
// becomes U+FFFD, one for each sequence that begins well and breaks off, one for any other byte.
void appendJsonText(std::string& out, std::string_view text);

}  // namespace velmora
