#include "quorin/io/filesystem/core/Links.hpp"

#include "Internal.hpp"
#include "Posix.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/Folder.hpp"

namespace quorin::io::filesystem::core {

namespace vfs = foundation::storage::vfs;

void createSymbolicLink(const fl::ustring& target, const fl::ustring& link) {
    // The target is stored byte for byte as given: the system reads a relative one from the
    // link's folder, and cleaning it here would change what it names.
    const std::string targetBytes = fl::i18n::to_utf8(target);
    if (link.empty()) {
        throw vfs::Exception(vfs::Exception::NotFound, vfs::toAbsoluteIRI(u"file", u""));
    }
    const std::string linkBytes = fl::i18n::to_utf8(link);
    if (const int e = posix::symlinkPath(targetBytes, linkBytes)) {
        detail::throwStorageError(e, detail::nativeUtf8(link));
    }
}

void createParentIfNeeded(const vfs::AbsoluteIRI& location,
                          const vfs::StorageSystemReference& storage) {
    if (!location.hasParent()) return;
    const vfs::AbsoluteIRI parent = location.getParent();
    if (vfs::exists(parent, storage) ==
        foundation::storage::provider::ExistenceType::DoesNotExist) {
        vfs::Folder(parent, storage).createFolderRecursive();
    }
}

}  // namespace quorin::io::filesystem::core
