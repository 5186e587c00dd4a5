#pragma once
// Byte-level RFC 3986 helpers shared by the IRI, URL and provider code.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::detail {

// Appends a raw path segment, escaping every byte outside RFC 3986 "pchar".
void appendEncodedSegment(std::string& out, std::string_view raw);
// Appends a raw absolute path, "/" kept, every other byte outside "pchar" escaped.
void appendEncodedPath(std::string& out, std::string_view raw);
// IRI text to URI text: escapes non-ASCII bytes, controls, spaces and the characters that
// may never appear raw; a "%" without two hex digits and every "#" after the first
// become escapes, as browsers read such text.
std::string encodeIRIText(std::string_view text);
// Decodes every "%XX" escape into its byte; other bytes are copied.
std::string percentDecode(std::string_view text);
// The decoded segments of an encoded absolute path, "." and ".." applied lexically (exact
// only for stores without links); nothing when ".." climbs above the root or a segment
// decodes to "/" or U+0000, which no name below the root can hold.
std::optional<std::vector<std::string>> decodedSegments(std::string_view path);
// RFC 3986 section 5.2.4.
std::string removeDotSegments(std::string_view path);
// RFC 3986 scheme syntax; `minLength` 2 refuses drive letters ("C:\x").
bool isSchemeText(std::string_view text, std::size_t minLength = 2) noexcept;
bool iequalsAscii(std::string_view a, std::string_view b) noexcept;

}  // namespace foundation::storage::detail
