#pragma once
// What is at a location, in the two grains the storage library answers in.
namespace foundation::storage::provider {

// vfs::exists: a file (anything that is not a folder), a folder, or nothing. Links are
// followed; a link that cannot be followed counts as nothing.
enum class ExistenceType : int {
    File = 0,
    Folder = 1,
    DoesNotExist = 2,
};

// vfs::existsExtended: the name itself, with links told apart by what they lead to.
enum class ExistenceTypeExtended : int {
    File = 0,
    Folder = 1,
    SymbolicLinkToFile = 2,
    SymbolicLinkToFolder = 3,
    BrokenSymbolicLink = 4,
    DoesNotExist = 5,
};

}  // namespace foundation::storage::provider
