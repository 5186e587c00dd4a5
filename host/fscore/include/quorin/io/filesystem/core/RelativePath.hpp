#pragma once
// The location of one place relative to another, computed on the texts alone.
//
// relative_path(source, destination): each must be a valid absolute location, an
// absolute local path ("/...") or an IRI that parses; otherwise
// foundation::storage::vfs::InvalidIRIException naming the bad text (the source is
// checked first). The source is taken as a folder. Both are cleaned lexically (RFC 3986
// section 5.2.4: "." and ".." segments, repeated and trailing "/"), so the answer
// does not look at links. The answer uses "/" separators, "." for equal locations and ".."
// steps as needed; for IRIs it is in encoded form and carries the destination's query and
// fragment. Local paths and IRIs, or IRIs whose schemes (case-insensitive) or authorities
// differ, share no root: std::invalid_argument.
#include "fl/ustring.hpp"

namespace quorin::io::filesystem::core {

fl::ustring relative_path(const fl::ustring& source, const fl::ustring& destination);

}  // namespace quorin::io::filesystem::core
