#pragma once
// A folder at a storage location. Construction touches nothing; each call throws
// vfs::Exception (codes in Exception.hpp) or UnsupportedIRISchemeException.
//
// Listings read each folder once and come back sorted by name (UTF-16 code-unit order).
// listFiles: every entry that is not a real folder (files, links, other kinds);
// listFolders: real folders only; listAll: both; listAllRecursive: pre-order over the
// whole tree, never descending through a link. An empty pattern lists every entry; else
// a shell pattern ("*.txt") on the name filters what is reported. A listing that fails
// part way throws and returns nothing.
#include "fl/ustring.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/FolderListing.hpp"
#include "foundation/storage/vfs/StorageSystem.hpp"

namespace foundation::storage::vfs {

class FOUNDATION_STORAGE_API Folder {
public:
    Folder(AbsoluteIRI location, StorageSystemReference storage);

    [[nodiscard]] const AbsoluteIRI& getLocation() const noexcept { return location_; }
    [[nodiscard]] const StorageSystemReference& getStorage() const noexcept { return storage_; }

    // One level; code 3 when anything has the name, 4 when the parent is missing.
    void createFolder() const;
    // Every missing level, top down; an existing folder is success. Code 3 when a level
    // exists but is not a folder, 4 when it is a link that leads nowhere. Levels made
    // before a failure stay.
    void createFolderRecursive() const;
    // An empty folder only (code 5 with the system text otherwise).
    void removeFolder() const;

    [[nodiscard]] FolderListing listFiles(const fl::ustring& pattern = {}) const;
    [[nodiscard]] FolderListing listFolders(const fl::ustring& pattern = {}) const;
    [[nodiscard]] FolderListing listAll(const fl::ustring& pattern = {}) const;
    [[nodiscard]] FolderListing listAllRecursive(const fl::ustring& pattern = {}) const;

private:
    AbsoluteIRI location_;
    StorageSystemReference storage_;
};

}  // namespace foundation::storage::vfs
