#pragma once
// Everything of the storage library's vfs layer in one include.
#include "foundation/storage/provider/ExistenceType.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/Exception.hpp"
#include "foundation/storage/vfs/File.hpp"
#include "foundation/storage/vfs/Folder.hpp"
#include "foundation/storage/vfs/FolderListing.hpp"
#include "foundation/storage/vfs/IODevice.hpp"
#include "foundation/storage/vfs/StorageSystem.hpp"
