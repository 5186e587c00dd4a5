#pragma once
// Text helpers for URLs.
//
// - decodeURL(text, asUtf8): replaces every "%XX" escape in place. With asUtf8 the
//   escaped bytes are read as UTF-8 (bytes that are not become U+DC80..U+DCFF); without,
//   each byte is one Latin-1 character. A "%" not followed by two hex digits stays.
// - normalizeURL(text): RFC 3986 section 6.2.2 in place: scheme and host in lower case,
//   hex digits of escapes in upper case, escaped unreserved characters decoded, "." and
//   ".." segments removed (section 5.2.4). Escaped reserved characters such as "%2F" are
//   kept. Raw non-ASCII characters and spaces come back percent-encoded. Throws
//   vfs::InvalidIRIException (text unchanged) when the text is no absolute IRI.
#include "fl/ustring.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

namespace foundation::storage::utility {

FOUNDATION_STORAGE_API void decodeURL(fl::ustring& text, bool asUtf8);
FOUNDATION_STORAGE_API void normalizeURL(fl::ustring& text);

}  // namespace foundation::storage::utility
