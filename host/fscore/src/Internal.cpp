#include "Internal.hpp"

#include "Posix.hpp"

#include "fl/filesystem/filesystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <cerrno>

#include <fcntl.h>

namespace quorin::io::filesystem::core::detail {

namespace vfs = foundation::storage::vfs;

std::string nativeUtf8(const fl::ustring& path) {
    fl::ustring native;
    try {
        native = fl::filesystem::detail::make_native_form(path, true);
    } catch (const fl::filesystem::FsysExceptionBase& e) {
        // Only a relative path needs the current folder; without it there is no location.
        throw vfs::Exception(vfs::Exception::InvalidLocation, vfs::toAbsoluteIRI(u"file", u""),
                             e.what());
    }
    return fl::i18n::to_utf8(native);
}

vfs::AbsoluteIRI fileIRI(const std::string& nativePath) {
    return vfs::toAbsoluteIRI(u"file", fl::i18n::to_ustring(nativePath));
}

void throwStorageError(int error, const std::string& nativePath) {
    switch (error) {
        case EEXIST:
            throw vfs::Exception(vfs::Exception::AlreadyExists, fileIRI(nativePath));
        case EACCES:
        case EPERM:
        case EROFS:
            throw vfs::Exception(vfs::Exception::PermissionDenied, fileIRI(nativePath));
        case ENOENT:
        case ENOTDIR:
            throw vfs::Exception(vfs::Exception::NotFound, fileIRI(nativePath));
        default:
            throw vfs::Exception(vfs::Exception::OtherIOError, fileIRI(nativePath),
                                 fl::sys::errorText(error));
    }
}

std::string resolveExistingPrefix(const std::string& nativePath) {
    std::string resolved;
    if (posix::realPath(nativePath, resolved) == 0) return resolved;
    std::size_t cut = nativePath.size();
    while (cut > 0) {
        cut = nativePath.rfind('/', cut - 1);
        if (cut == std::string::npos) break;
        const std::string prefix = cut == 0 ? std::string("/") : nativePath.substr(0, cut);
        if (posix::realPath(prefix, resolved) == 0) {
            if (resolved.back() != '/') resolved.push_back('/');
            resolved.append(nativePath, cut + 1);
            return resolved;
        }
    }
    return nativePath;
}

ParentFolder openParent(const std::string& nativePath) {
    ParentFolder out;
    const std::size_t slash = nativePath.rfind('/');
    if (nativePath == "/" || slash == std::string::npos) {
        out.path = nativePath;
        return out;
    }
    const std::string parent = slash == 0 ? std::string("/") : nativePath.substr(0, slash);
    out.name = nativePath.substr(slash + 1);
    // Met without a link, the parent is its own canonical form: one walk, nothing to name.
    // So is it when the walk stopped before any link, at a name missing, no folder or
    // closed: realpath(3) would stop there too.
    out.folder = posix::openWithoutLinks(parent, O_DIRECTORY);
    const int stopped = out.folder.valid() ? 0 : errno;
    if (stopped == 0 || stopped == ENOENT || stopped == ENOTDIR || stopped == EACCES) {
        out.path = nativePath;
        return out;
    }
    out.folder = fl::sys::openat(AT_FDCWD, parent.c_str(), O_PATH | O_DIRECTORY);
    std::string resolved;
    if (!out.folder.valid() || !posix::kernelName(out.folder.get(), resolved)) {
        resolved = resolveExistingPrefix(parent);
    }
    if (resolved.back() != '/') resolved.push_back('/');
    out.path = resolved + out.name;
    return out;
}

std::string localPathOf(const fl::ustring& text, bool isUrl) {
    if (!isUrl) {
        try {
            return fl::filesystem::detail::native_bytes(text);
        } catch (const fl::filesystem::InvalidName&) {
            return {};
        }
    }
    try {
        const vfs::AbsoluteIRI iri(text);
        if (lowerAscii(iri.getScheme()) != u"file") return {};
        return fl::i18n::to_utf8(vfs::fromAbsoluteIRI(iri));
    } catch (const vfs::StorageException&) {
        return {};
    }
}

fl::ustring lowerAscii(fl::ustring text) {
    for (char16_t& c : text) {
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
    }
    return text;
}

}  // namespace quorin::io::filesystem::core::detail
