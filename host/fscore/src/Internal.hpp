#pragma once
// Helpers shared by the core's sources: local paths in their native UTF-8 form, their file
// IRIs, and the mapping of errno values to storage errors.
#include "fl/sys/SystemCalls.hpp"
#include "fl/ustring.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <string>

namespace quorin::io::filesystem::core::detail {

// make_native_form(path, true) as UTF-8 bytes (surrogate-escaped names come back as the
// bytes they stand for). A path that cannot be made absolute (the current folder is
// gone) or that holds U+0000 throws vfs::Exception code 1 located at "file://".
std::string nativeUtf8(const fl::ustring& path);

// The file IRI of an absolute local path given as UTF-8 bytes.
foundation::storage::vfs::AbsoluteIRI fileIRI(const std::string& nativePath);

// vfs::Exception for a failed system call on a local path: EEXIST 3, EACCES/EPERM/EROFS
// 2, ENOENT/ENOTDIR 4, anything else 5 with the system's text.
[[noreturn]] void throwStorageError(int error, const std::string& nativePath);

// Resolves every link in the longest prefix of an absolute, native path that exists and
// appends the rest unchanged; never fails ("/" always exists).
std::string resolveExistingPrefix(const std::string& nativePath);

// An absolute, native path with the links of its existing parent folders resolved (as
// resolveExistingPrefix does for the parent), the last name kept as it is, and that
// parent opened (O_PATH | O_DIRECTORY) when it is a folder. The root has no parent.
struct ParentFolder {
    std::string path;
    std::string name;
    fl::sys::UniqueFd folder;
};
ParentFolder openParent(const std::string& nativePath);

// The local path (UTF-8) that a text names: the text itself when it is no IRI, the path of
// a "file:" IRI, "" for other IRIs, for IRIs that do not parse and for a text holding
// U+0000 (which names nothing).
std::string localPathOf(const fl::ustring& text, bool isUrl);

// ASCII lower case, for schemes.
fl::ustring lowerAscii(fl::ustring text);

}  // namespace quorin::io::filesystem::core::detail
