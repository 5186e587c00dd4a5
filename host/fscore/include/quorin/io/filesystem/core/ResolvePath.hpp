#pragma once
// Path resolution: what a path names, and the form of it that the host hands on.
//
// resolvePath(path, options):
//   Local paths (no "scheme://" prefix) are made absolute from the current folder and
//   cleaned: "." segments and repeated "/" removed, ".." kept (lexical removal would be
//   wrong through links). The path must exist following links: a missing path, an empty
//   text and a dangling link all answer {"" , PathType::None}.
//   - a name ending in "/" (or "/.") is looked up as the system does: it must be a folder,
//     a link there is followed (type Folder), anything else is ENOTDIR, so None; the
//     answer text is the cleaned path, without the ending;
//   - type SymbolicLink when the path itself is a link, else File or Folder (anything
//     that is not a folder, a device or a socket included, counts as a file);
//   - ResolveSymbolicLinks: the text is the canonical path (every link resolved) and the
//     type that of the final target;
//   - "file:" IRIs name local paths; LocalPathFromFileScheme answers with the local path,
//     without it the answer is again a "file:" IRI (RFC 3986 text);
//   - other schemes go through their storage provider (vfs::existsExtended); the answer
//     is the IRI's RFC 3986 text, types as for local paths;
//   - CaseCorrectAndResolveOnWindows changes nothing on POSIX, where names are exact.
// Throws, for a path it cannot answer for, these two and no other exception (callers that
// answer for many paths take either as "nothing usable there" for that one path):
//   foundation::storage::vfs::UnsupportedIRISchemeException  no provider for the scheme
//   foundation::storage::vfs::Exception
//     code 1  an IRI text that does not parse (located at "<scheme>://", the IRI naming
//             nothing), a "file:" IRI that names no local file (another host, an
//             escaped "/" or NUL in a name; located at the IRI), a relative path when
//             the current folder is gone (located at "file://");
//     code 2  a folder on the way cannot be searched (EACCES);
//     code 5  any other failure of the OS besides "nothing there" (ENOENT, ENOTDIR,
//             ELOOP);
//     a provider's own failure for one of its locations, with the provider's code.
//
// resolvePathWithAttributes(path, options): as resolvePath, plus readable/writable
// (access(2) for the caller's real ids), the modification time (microseconds, UTC) and
// the size (0 for folders). Attributes follow links, as the open that would use them
// does. For a location that is not there: false, false, not-a-date-time, 0.
//
// inspectLink(path, wantTarget): whether a path names a symbolic link itself, asked with
// one lstat(2) of the name made absolute and cleaned as above ("name/" follows a link,
// so it names none); only a link is followed. `leads` when following reaches something
// (false for a dangling link or a loop); with wantTarget `target` is then the canonical
// path it leads to (realpath(3)). "file:" IRIs name local paths; other schemes answer
// through their provider, without a target. Throws as resolvePath does, and also when
// following a link fails otherwise than for nothing there (ENOTDIR code 4, EACCES 2,
// else 5).
//
// setupPathForURLConstruction(path, mode, mustExist) prepares a path for IRI building,
// in place. An IRI text ("scheme://...") is left as it is and answers true. A local path
// is made absolute and cleaned as above and answers false; mode says which links are
// resolved: None (none), All (every link in the longest existing prefix, the last
// component included), AllButLast (links in the existing parent folders, never the last
// component, so that a link itself can be named). With mustExist, a local path that does
// not exist throws foundation::storage::vfs::Exception code 4 and leaves path unchanged.
// An empty text stays empty. On any throw the path is unchanged.
#include "fl/ustring.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>

namespace quorin::io::filesystem::core {

// Codes of ResolvePathResult::type.
namespace PathType {
inline constexpr std::int32_t File = 0;
inline constexpr std::int32_t Folder = 1;
inline constexpr std::int32_t SymbolicLink = 2;
inline constexpr std::int32_t None = 3;
}  // namespace PathType

struct ResolvePathOptions {
    bool ResolveSymbolicLinks = false;
    bool LocalPathFromFileScheme = false;
    bool CaseCorrectAndResolveOnWindows = false;
};

struct ResolvePathResult {
    fl::ustring path;  // empty when nothing is there
    std::int32_t type = PathType::None;
};

struct ResolvePathResultWithAttributes : ResolvePathResult {
    bool readable = false;
    bool writable = false;
    boost::posix_time::ptime lastModified;  // not-a-date-time when unknown
    std::int64_t size = 0;
};

ResolvePathResult resolvePath(const fl::ustring& path, const ResolvePathOptions& options);

struct LinkInspection {
    bool isLink = false;
    bool leads = false;
    fl::ustring target;
};

LinkInspection inspectLink(const fl::ustring& path, bool wantTarget);

ResolvePathResultWithAttributes resolvePathWithAttributes(const fl::ustring& path,
                                                          const ResolvePathOptions& options);

// Which links setupPathForURLConstruction resolves.
enum class ResolveSymbolicLinks : std::int32_t { None = 0, All = 1, AllButLast = 2 };

bool setupPathForURLConstruction(fl::ustring& path, ResolveSymbolicLinks mode, bool mustExist);

}  // namespace quorin::io::filesystem::core
