#pragma once
// The storage system: the providers by scheme ("file", "mem" and "s3"), reached through a
// cheap, copyable reference (see Hexfarrow/QuorinStorageSystem for how to get one).
//
// exists / existsExtended answer for the location itself (vfs::Exception code 2 when
// the answer cannot be read for lack of permission, 1 for a location naming nothing);
// a scheme without a provider throws UnsupportedIRISchemeException.
#include "foundation/storage/provider/ExistenceType.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <memory>

namespace foundation::storage::provider {
class Provider;
}

namespace foundation::storage::vfs {

class FOUNDATION_STORAGE_API StorageSystemReference {
public:
    StorageSystemReference();
    // The provider serving the location's scheme (case-insensitive).
    [[nodiscard]] const provider::Provider& providerFor(const AbsoluteIRI& location) const;

    struct Registry;  // opaque: the providers by scheme

private:
    std::shared_ptr<const Registry> registry_;
};

FOUNDATION_STORAGE_API provider::ExistenceType exists(const AbsoluteIRI& location,
                                                      const StorageSystemReference& storage);
FOUNDATION_STORAGE_API provider::ExistenceTypeExtended existsExtended(
    const AbsoluteIRI& location, const StorageSystemReference& storage);

}  // namespace foundation::storage::vfs
