#pragma once
// The one place where 8-bit text and UTF-16 meet.
//
// Decoding is strict UTF-8, except that every byte that is not part of a well-formed
// sequence becomes the lone surrogate U+DC00 + byte (U+DC80..U+DCFF), and encoding turns
// those surrogates back into the same byte. A file name that is not valid UTF-8 therefore
// survives the round trip unchanged. Any other unpaired surrogate encodes as U+FFFD.
// Neither function throws anything but std::bad_alloc.
#include "fl/ustring.hpp"

#include <string>
#include <string_view>

namespace fl::i18n {

ustring to_ustring(std::string_view utf8);
std::string to_utf8(ustring_view text);

// Appending forms, for callers that build one buffer from many pieces.
void append_ustring(ustring& out, std::string_view utf8);
void append_utf8(std::string& out, ustring_view text);

}  // namespace fl::i18n
