#pragma once
// A file at a storage location. Construction touches nothing; each call goes to the
// provider of the location's scheme and throws vfs::Exception (codes in Exception.hpp)
// or UnsupportedIRISchemeException. A failed call leaves the storage as it was.
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/StorageSystem.hpp"

#include <cstdint>

namespace foundation::storage::vfs {

class FOUNDATION_STORAGE_API FileAttributes {
public:
    FileAttributes(bool readable, bool writable, std::uint64_t size, std::int64_t lastModified)
        : readable_(readable), writable_(writable), size_(size), lastModified_(lastModified) {}
    // For the calling process (access(2) with the effective ids on "file").
    [[nodiscard]] bool isReadable() const noexcept { return readable_; }
    [[nodiscard]] bool isWritable() const noexcept { return writable_; }
    [[nodiscard]] std::uint64_t getSize() const noexcept { return size_; }
    // Nanoseconds since the Unix epoch.
    [[nodiscard]] std::int64_t getLastModified() const noexcept { return lastModified_; }

private:
    bool readable_;
    bool writable_;
    std::uint64_t size_;
    std::int64_t lastModified_;
};

class FOUNDATION_STORAGE_API File {
public:
    File(AbsoluteIRI location, StorageSystemReference storage);

    [[nodiscard]] const AbsoluteIRI& getLocation() const noexcept { return location_; }
    [[nodiscard]] const StorageSystemReference& getStorage() const noexcept { return storage_; }

    // Creates an empty file; code 3 when anything already has the name (never replaced),
    // 4 when the parent folder is missing, 2 when it may not be created.
    void createFile() const;
    // Removes the file (or a link, never its target); code 4 when nothing is there.
    void removeFile() const;
    // Follows links; code 4 when nothing is there.
    [[nodiscard]] FileAttributes getAttributes() const;

private:
    AbsoluteIRI location_;
    StorageSystemReference storage_;
};

}  // namespace foundation::storage::vfs
