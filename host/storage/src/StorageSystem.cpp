#include "foundation/storage/vfs/StorageSystem.hpp"

#include "IRIText.hpp"
#include "Providers.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/provider/Provider.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <memory>
#include <string>

namespace foundation::storage {

namespace provider {
// Key functions of the interfaces.
Provider::~Provider() = default;

ExistenceTypeExtended Provider::existsExtended(const vfs::AbsoluteIRI& location) const {
    switch (exists(location)) {
        case ExistenceType::File:
            return ExistenceTypeExtended::File;
        case ExistenceType::Folder:
            return ExistenceTypeExtended::Folder;
        default:
            return ExistenceTypeExtended::DoesNotExist;
    }
}
Stream::~Stream() = default;
}  // namespace provider

namespace vfs {

struct StorageSystemReference::Registry {
    const provider::Provider* file = &provider::fileProvider();
    const provider::Provider* mem = &provider::memProvider();
    const provider::Provider* s3 = &provider::s3Provider();
};

namespace {
std::shared_ptr<const StorageSystemReference::Registry> theRegistry() {
    static const auto registry = std::make_shared<const StorageSystemReference::Registry>();
    return registry;
}
}  // namespace

StorageSystemReference::StorageSystemReference() : registry_(theRegistry()) {}

const provider::Provider& StorageSystemReference::providerFor(const AbsoluteIRI& location) const {
    const std::string& text = location.toEncodedString();
    const std::string_view scheme(text.data(), text.find(':'));
    if (detail::iequalsAscii(scheme, "file")) return *registry_->file;
    if (detail::iequalsAscii(scheme, "mem")) return *registry_->mem;
    if (detail::iequalsAscii(scheme, "s3")) return *registry_->s3;
    throw UnsupportedIRISchemeException(location.toString(), fl::i18n::to_ustring(scheme));
}

provider::ExistenceType exists(const AbsoluteIRI& location, const StorageSystemReference& storage) {
    return storage.providerFor(location).exists(location);
}

provider::ExistenceTypeExtended existsExtended(const AbsoluteIRI& location,
                                               const StorageSystemReference& storage) {
    return storage.providerFor(location).existsExtended(location);
}

}  // namespace vfs
}  // namespace foundation::storage

namespace Hexfarrow::QuorinStorageSystem {

foundation::storage::vfs::StorageSystemReference GetStorageSystemReference() { return {}; }

}  // namespace Hexfarrow::QuorinStorageSystem
