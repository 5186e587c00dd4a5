#include "foundation/storage/vfs/File.hpp"

#include "foundation/storage/provider/Provider.hpp"

#include <utility>

namespace foundation::storage::vfs {

File::File(AbsoluteIRI location, StorageSystemReference storage)
    : location_(std::move(location)), storage_(std::move(storage)) {}

void File::createFile() const { storage_.providerFor(location_).createFile(location_); }

void File::removeFile() const { storage_.providerFor(location_).removeFile(location_); }

FileAttributes File::getAttributes() const {
    const provider::Attributes a = storage_.providerFor(location_).getAttributes(location_);
    return {a.readable, a.writable, a.isFolder ? 0 : a.size, a.lastModified};
}

}  // namespace foundation::storage::vfs
