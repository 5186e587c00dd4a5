#pragma once
// The constituents of one path or URL under a file-system convention.
//
// getPathConstituentsCaller(path, convention): the convention is matched exactly and
// case-sensitively: "windows", "unix", "schema"; any other text (the empty one too)
// selects the platform's own convention, which reads IRIs by URL rules. A text with a
// "scheme://" prefix is analysed as a URL under every convention. Empty constituents are
// empty texts; Port is noPort when the location names none.
// Throws what the filesystem core throws for text it cannot analyse (a URL port that is
// not a number below 65536: "QUORIN:io:filesystem:core:InvalidURLPort"), and
// std::bad_alloc. No file-system access.
#include "fl/ustring.hpp"

#include <cstdint>
#include <limits>

namespace quorin::io::filesystem::quorin {

struct PathConstituents {
    static constexpr std::uint64_t noPort = std::numeric_limits<std::uint64_t>::max();

    fl::ustring Parent;
    fl::ustring Name;
    fl::ustring Extension;
    fl::ustring PathType;  // "Local", "UNC" or "URL"
    bool IsAbsolute = false;
    fl::ustring Host;
    std::uint64_t Port = noPort;
    fl::ustring Query;
    fl::ustring Fragment;
};

__attribute__((visibility("default"))) PathConstituents getPathConstituentsCaller(
    const fl::ustring& path, const fl::ustring& convention);

}  // namespace quorin::io::filesystem::quorin
