#include "foundation/storage/vfs/Folder.hpp"

#include "foundation/storage/provider/Provider.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <ranges>
#include <utility>
#include <vector>

namespace foundation::storage::vfs {

namespace {

FolderListing listWith(const AbsoluteIRI& folder, const StorageSystemReference& storage,
                       provider::ListScope scope, const fl::ustring& pattern) {
    std::vector<ListEntry> entries;
    storage.providerFor(folder).list(folder, scope, pattern, entries);
    return FolderListing(std::move(entries));
}

}  // namespace

Folder::Folder(AbsoluteIRI location, StorageSystemReference storage)
    : location_(std::move(location)), storage_(std::move(storage)) {}

void Folder::createFolder() const { storage_.providerFor(location_).createFolder(location_); }

void Folder::createFolderRecursive() const {
    const provider::Provider& p = storage_.providerFor(location_);
    // Find the deepest existing level, then create the missing ones below it in order.
    std::vector<AbsoluteIRI> missing;
    AbsoluteIRI level = location_;
    for (;;) {
        const provider::ExistenceType e = p.exists(level);
        if (e == provider::ExistenceType::Folder) break;
        if (e == provider::ExistenceType::File) throw Exception(Exception::AlreadyExists, level);
        if (!level.hasParent()) throw Exception(Exception::NotFound, level);
        missing.push_back(level);
        level = level.getParent();
    }
    // Reverse iterators rather than a reversed view: some compilers' ranges reject it.
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
        const AbsoluteIRI& next = *it;
        try {
            p.createFolder(next);
        } catch (const Exception& e) {
            if (e.getErrorCode() != Exception::AlreadyExists) throw;
            // A link that leads nowhere has the name but holds no folder.
            if (p.existsExtended(next) == provider::ExistenceTypeExtended::BrokenSymbolicLink) {
                throw Exception(Exception::NotFound, next);
            }
            // Someone else made the same level meanwhile: that is what was asked for.
            if (p.exists(next) != provider::ExistenceType::Folder) throw;
        }
    }
}

void Folder::removeFolder() const { storage_.providerFor(location_).removeFolder(location_); }

FolderListing Folder::listFiles(const fl::ustring& pattern) const {
    return listWith(location_, storage_, provider::ListScope::Files, pattern);
}
FolderListing Folder::listFolders(const fl::ustring& pattern) const {
    return listWith(location_, storage_, provider::ListScope::Folders, pattern);
}
FolderListing Folder::listAll(const fl::ustring& pattern) const {
    return listWith(location_, storage_, provider::ListScope::All, pattern);
}
FolderListing Folder::listAllRecursive(const fl::ustring& pattern) const {
    return listWith(location_, storage_, provider::ListScope::AllRecursive, pattern);
}

}  // namespace foundation::storage::vfs
