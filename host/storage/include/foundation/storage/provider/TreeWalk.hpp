#pragma once
// A walk down a local folder tree that reaches every entry by its name in its own open
// folder, so that no link met inside the tree is ever followed, at any depth.
//
// walkTree(top, visitor) opens the folder `top` names (a "file" IRI; a link there is
// followed, as a listing of it follows it), reads it whole, lets the visitor arrange its
// entries and then visits them in that order, depth first: each folder entry the visitor
// enters is opened relative to its parent (O_NOFOLLOW: one swapped for a link since the
// listing is not entered), read whole and walked before the next entry of its parent.
// Entries come sorted as the storage listings sort them (UTF-16 code units of the name).
//
// Bounds: no recursion on the call stack; memory holds, per folder on the current chain,
// its remaining entries (names only); at most a quarter of RLIMIT_NOFILE descriptors (4
// to 256) stay open. Deeper folders are closed, shallowest first, and opened again when
// the walk comes back to them: through ".." of the folder below when that is the same
// folder (device and inode), else by the chain of names from the deepest folder still
// open. A folder that cannot be found again that way is reported as refused and the rest
// of it is skipped.
//
// Statuses read ahead: for the entries the visitor says it will ask status() of, a
// second thread reads them (statx, relative to the folder's descriptor) in their order
// while the visitor works on the earlier ones; status() then answers from what was read,
// or reads itself whatever that thread has not reached yet. No entry's status can depend
// on a change the walk makes to another entry of the same folder: a lookup needs search
// permission on the folder only, whose own change comes before its listing (top-down,
// flat) or after all its entries (bottom-up). Two exceptions are read again when asked:
// a non-folder with more than one link (another name of it may be changed first) and a
// mount point (the same folder may be mounted elsewhere in the tree). The thread starts
// with the first folder that has a few such entries, holds no descriptor of its own and
// is stopped and joined before walkTree returns or throws; when it cannot be started,
// every status is read when asked.
//
// Failures: a folder that cannot be opened or read is reported to refused() with the
// exception a listing of it would raise; its entries are skipped and the walk goes on.
// walkTree itself throws only std::bad_alloc, and the storage library's IRI exceptions
// for a top that is no local "file" IRI; whatever the visitor throws ends the walk, with
// every descriptor closed.
#include "foundation/storage/provider/ExistenceType.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/Exception.hpp"
#include "foundation/storage/vfs/FolderListing.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider {

using EntryKind = vfs::ListEntry::Kind;

// One entry of a folder: its name as raw bytes and its kind as the folder read it
// (d_type; a status only where the file system does not tell).
struct FOUNDATION_STORAGE_API TreeEntry {
    std::string name;
    EntryKind kind;
};

// The entry itself, never what a link leads to.
struct FOUNDATION_STORAGE_API EntryStatus {
    EntryKind kind = EntryKind::Other;
    unsigned mode = 0;  // permission, set-id and sticky bits (07777)
    // Setting even the mode it has already could fail: the caller does not own it, it is
    // immutable or append-only, or its file system is mounted read-only.
    bool changeMayFail = true;
};

// The folder whose entries are being visited. Names are single raw segments.
class FOUNDATION_STORAGE_API TreeFolder {
public:
    // The whole path of `name` in this folder ("" for the folder itself): the top's path,
    // then "/" and each name down to it. Built on each call.
    [[nodiscard]] virtual std::string pathOf(std::string_view name) const = 0;
    // 0, or the errno of the status call.
    [[nodiscard]] virtual int status(const std::string& name, EntryStatus& out) = 0;
    // Sets the entry's own mode; a link is never followed (EOPNOTSUPP on Linux). 0 or errno.
    [[nodiscard]] virtual int setMode(const std::string& name, unsigned mode) = 0;
    // vfs::existsExtended for the entry; throws vfs::Exception as that does, naming the
    // entry's whole path.
    [[nodiscard]] virtual ExistenceTypeExtended existence(const std::string& name) = 0;

protected:
    TreeFolder() = default;
    TreeFolder(const TreeFolder&) = default;
    TreeFolder& operator=(const TreeFolder&) = default;
    ~TreeFolder() = default;
};

// A folder that could not be opened or read.
struct FOUNDATION_STORAGE_API FolderRefusal {
    std::string path;          // its whole path
    int error;                 // the errno (0 when the top folder's listing was refused)
    bool opening;              // opening a folder entry (not the top folder, not a read)
    vfs::Exception exception;  // what a listing of it raises
};

class FOUNDATION_STORAGE_API TreeVisitor {
public:
    virtual ~TreeVisitor();
    // Which entries a read keeps: the others are never stored.
    [[nodiscard]] virtual bool keeps(EntryKind kind) const;
    // The order in which a folder's kept entries are visited; `folder` is that folder.
    virtual void arrange(TreeFolder& folder, std::vector<TreeEntry>& entries);
    // Whether visit(), enter() or leave() will ask status() of this entry; a guess that is
    // wrong costs one status read in vain or not ahead, never a different answer.
    [[nodiscard]] virtual bool asksStatus(const TreeEntry& entry) const;
    // An entry that is not a folder, in the folder holding it.
    virtual void visit(TreeFolder& folder, const TreeEntry& entry) = 0;
    // A folder entry, before anything in it: true to walk it.
    virtual bool enter(TreeFolder& folder, const TreeEntry& entry) = 0;
    // After a folder entered has been walked (or refused), in the folder holding it; called
    // only when wantsLeave() is true.
    virtual void leave(TreeFolder& folder, const TreeEntry& entry);
    [[nodiscard]] virtual bool wantsLeave() const;
    virtual void refused(const FolderRefusal& refusal) = 0;

protected:
    TreeVisitor() = default;
    TreeVisitor(const TreeVisitor&) = default;
    TreeVisitor& operator=(const TreeVisitor&) = default;
};

FOUNDATION_STORAGE_API void walkTree(const vfs::AbsoluteIRI& top, TreeVisitor& visitor);

}  // namespace foundation::storage::provider
