#pragma once
// The result of a folder listing: entries sorted by name in UTF-16 code-unit order
// (a recursive listing is pre-order: a folder, then its sorted contents).
#include "fl/ustring.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <cstddef>
#include <utility>
#include <vector>

namespace foundation::storage::vfs {

class FOUNDATION_STORAGE_API ListEntry {
public:
    // The entry's own kind, read from the folder (links are not followed).
    enum class Kind { File, Folder, SymbolicLink, Other };

    ListEntry(AbsoluteIRI location, fl::ustring name, Kind kind)
        : location_(std::move(location)), name_(std::move(name)), kind_(kind) {}

    [[nodiscard]] const AbsoluteIRI& getLocation() const noexcept { return location_; }
    // The entry's name (one segment, decoded).
    [[nodiscard]] const fl::ustring& getName() const noexcept { return name_; }
    [[nodiscard]] Kind getKind() const noexcept { return kind_; }

private:
    AbsoluteIRI location_;
    fl::ustring name_;
    Kind kind_;
};

class FOUNDATION_STORAGE_API FolderListing {
public:
    using const_iterator = std::vector<ListEntry>::const_iterator;

    FolderListing() = default;
    explicit FolderListing(std::vector<ListEntry> entries) : entries_(std::move(entries)) {}

    [[nodiscard]] const_iterator begin() const noexcept { return entries_.begin(); }
    [[nodiscard]] const_iterator end() const noexcept { return entries_.end(); }
    [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
    [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }
    [[nodiscard]] const ListEntry& operator[](std::size_t i) const { return entries_[i]; }

private:
    std::vector<ListEntry> entries_;
};

}  // namespace foundation::storage::vfs
