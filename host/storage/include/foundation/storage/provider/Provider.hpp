#pragma once
// The small interface every storage provider implements, one per IRI scheme. The vfs
// classes (File, Folder, IODevice, exists) are thin wrappers that pick the provider from
// the storage system and call it; callers normally use those, not this.
//
// Every operation throws vfs::Exception with the codes of vfs/Exception.hpp, names the
// location it was given, and leaves nothing half-made behind when it fails.
#include "fl/ustring.hpp"
#include "foundation/storage/provider/ExistenceType.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/FolderListing.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace foundation::storage::provider {

struct FOUNDATION_STORAGE_API Attributes {
    bool isFolder = false;
    bool readable = false;
    bool writable = false;
    std::uint64_t size = 0;
    // Nanoseconds since the Unix epoch.
    std::int64_t lastModified = 0;
};

enum class OpenMode { Read, Write, Append };

enum class ListScope { Files, Folders, All, AllRecursive };

// An open file. read() answers 0 at the end; close() reports a failed flush.
class FOUNDATION_STORAGE_API Stream {
public:
    virtual ~Stream();
    virtual std::size_t read(std::span<std::byte> buffer) = 0;
    virtual void write(std::span<const std::byte> data) = 0;
    virtual void close() = 0;
};

class FOUNDATION_STORAGE_API Provider {
public:
    virtual ~Provider();

    virtual ExistenceType exists(const vfs::AbsoluteIRI& location) const = 0;
    // As exists(): a store without links has no broken ones to tell apart.
    virtual ExistenceTypeExtended existsExtended(const vfs::AbsoluteIRI& location) const;
    // Exclusive: code 3 when anything has the name, 4 when the parent is missing.
    virtual void createFile(const vfs::AbsoluteIRI& location) const = 0;
    // A file or a link (never followed); code 4 when nothing is there.
    virtual void removeFile(const vfs::AbsoluteIRI& location) const = 0;
    // One level: code 3 when anything has the name, 4 when the parent is missing.
    virtual void createFolder(const vfs::AbsoluteIRI& location) const = 0;
    // An empty folder only.
    virtual void removeFolder(const vfs::AbsoluteIRI& location) const = 0;
    virtual Attributes getAttributes(const vfs::AbsoluteIRI& location) const = 0;
    virtual std::unique_ptr<Stream> open(const vfs::AbsoluteIRI& location, OpenMode mode) const = 0;
    // Appends the listing of a folder to `out`, sorted as FolderListing says. Files are
    // every entry that is not a real folder (links included); Folders are real folders
    // only. An empty pattern takes every entry; otherwise a shell pattern on the name
    // chooses which entries are reported (a recursive listing still walks every folder).
    virtual void list(const vfs::AbsoluteIRI& folder, ListScope scope, const fl::ustring& pattern,
                      std::vector<vfs::ListEntry>& out) const = 0;
};

}  // namespace foundation::storage::provider
