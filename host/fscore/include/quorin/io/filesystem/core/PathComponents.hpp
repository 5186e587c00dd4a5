#pragma once
// Path and URL text analysis: no file-system access, no exceptions for ordinary text.
//
// Conventions (FileSystemType):
//   unix    "/" separates; "/..." is absolute; everything is "Local".
//   windows "\" and "/" separate; "X:" starts a drive path ("X:\..." and "X:/..." are
//           absolute, "X:dir" is drive-relative); "\\server\share" starts a UNC path,
//           whose server is reported as the host.
//   schema  RFC 3986 (Appendix B split): scheme, authority (host, port), path, query,
//           fragment; the path is split as in unix and the parent keeps scheme and
//           authority, so that parent + "/" + name + extension rebuilds the location.
//   native  this platform's own convention (unix), URL rules when the text is an IRI.
// Whatever the convention, a text for which the caller passes isUrl = true is read by the
// URL rules: a URL is a URL on every platform.
//
// Components: the name is the last component without its extension; trailing separators
// are ignored ("/a/b/" names "b"); the extension starts at the last dot of the name and
// keeps it, but leading dots never start one (".bashrc", "..x" have none; "." and ".."
// are names). A root alone ("/", "C:\", "\\server\share") is its own parent with an empty
// name. Texts are not normalised: separators and percent-escapes stay as written.
//
// Throws: getPathComponents throws QUORIN:io:filesystem:core:InvalidURLPort (one
// argument, the URL) when a URL's port is not a decimal number below 65536; nothing else
// but std::bad_alloc. The other two never throw anything but std::bad_alloc.
#include "fl/ustring.hpp"

#include <cstdint>
#include <limits>

namespace quorin::io::filesystem::core {

// Capitalised enumerators: "unix" is a predefined macro in GNU modes.
enum class FileSystemType : std::int32_t { Unix = 0, Windows = 1, Schema = 2, Native = 3 };

struct PathComponents {
    // The port of a location that names none.
    static constexpr std::uint64_t noPort = std::numeric_limits<std::uint64_t>::max();

    fl::ustring parent;
    fl::ustring name;
    fl::ustring extension;
    fl::ustring host;
    std::uint64_t port = noPort;
    fl::ustring query;
    fl::ustring fragment;
};

PathComponents getPathComponents(const fl::ustring& path, bool isUrl, FileSystemType type);

// "Local", "UNC" or "URL".
fl::ustring getPathType(const fl::ustring& path, bool isUrl, FileSystemType type);

// unix: "/..."; windows: "X:\", "X:/" or UNC; schema: a scheme is present; native: unix,
// or true for an IRI.
bool getIsAbsolute(const fl::ustring& path, bool isUrl, FileSystemType type);

}  // namespace quorin::io::filesystem::core
