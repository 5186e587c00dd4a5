// What the caller may not touch: subtrees it may not read or search, which every walk
// goes past, changing exactly what it changes in the same tree without them; and a
// storage folder that refuses new entries, which the query reports as not writable.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/Child.hpp"
#include "zkfs/test/TempTree.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "foundation/storage/provider/MemProvider.hpp"
#include "foundation/storage/vfs/vfs.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace zkfs::test {
namespace {

const std::vector<std::string> kFiles = {"a.txt", "b.txt", "sub1/c.txt", "sub1/deep/d.txt",
                                         "sub2/e.txt"};
const std::vector<std::string> kFolders = {"sub1", "sub1/deep", "sub2", ""};
// Entries whose fate must not depend on sub1 being closed.
const std::vector<std::string> kOutside = {"", "a.txt", "b.txt", "sub2", "sub2/e.txt"};

// The three walks (flat, bottom-up, top-down) in each scope, past a folder closed
// entirely (000) or closed to listing only (300), compared with the same walk over the
// same tree with nothing closed.
TEST(Denied, EveryWalkChangesEverythingOutsideAClosedSubfolderAndNamesOnlyIt) {
    struct Walk {
        std::string request;
        bool grants;
        unsigned fileMode;
        unsigned folderMode;
    };
    const Walk walks[] = {
        {"struct('Writable', false)", false, 0644, 0755},
        {"struct('Readable', false)", false, 0644, 0755},
        {"struct('Readable', true, 'OtherRead', true)", true, 0200, 0300},
    };
    for (const Walk& walk : walks) {
        for (const std::string scope : {"files", "folders", "all", "symboliclinks", "target"}) {
            for (const unsigned closed : {0000U, 0300U}) {
                SCOPED_TRACE(walk.request + " " + scope +
                             (closed == 0 ? ", sub1 000" : ", sub1 300"));
                TempTree tree;
                TempTree control;  // the same tree, nothing closed
                for (TempTree* t : {&tree, &control}) {
                    for (const auto& f : kFiles) t->makeFile(f, "x");
                    t->makeLink("e.txt", "sub2/link");
                    for (const auto& f : kFiles) t->setMode(f, walk.fileMode);
                    for (const auto& d : kFolders) t->setMode(d, walk.folderMode);
                    if (runningAsRoot()) t->handTo(unprivilegedIds().uid, unprivilegedIds().gid);
                }
                tree.setMode("sub1", closed);
                const std::string root = tree.root().native();
                const std::string controlRoot = control.root().native();
                const std::string sub1 = tree.path("sub1").native();
                const auto walkOver = [&](const std::string& top) {
                    return failuresIn(call("r = modifyPerms_impl(" + charLiteral(top) +
                                           ", 'Folder', " + walk.request + ", false, '" + scope +
                                           "')"));
                };
                runUnprivileged([&] {
                    // Outside sub1 the report is the one of the open tree, row for row.
                    std::vector<std::string> outside;
                    bool named = false;
                    for (const Failure& f : walkOver(root)) {
                        EXPECT_FALSE(f.cause.empty());
                        named = named || f.name == sub1;
                        if (f.name != sub1 && !f.name.starts_with(sub1 + "/"))
                            outside.push_back(f.name.substr(root.size()));
                    }
                    std::vector<std::string> expected;
                    for (const Failure& f : walkOver(controlRoot))
                        expected.push_back(f.name.substr(controlRoot.size()));
                    EXPECT_EQ(outside, expected);
                    // A listing of sub1 itself that is refused is a failure, not silence.
                    if (closed == 0 && !walk.grants) {
                        EXPECT_TRUE(named) << "no failure names the closed folder";
                    }
                });
                for (const auto& e : kOutside)
                    EXPECT_EQ(tree.mode(e), control.mode(e)) << "'" << e << "'";
                // Granting read opens a 300 folder before it is listed: nothing is lost.
                if (closed == 0300 && walk.grants) {
                    for (const auto& e : kFiles) EXPECT_EQ(tree.mode(e), control.mode(e)) << e;
                }
            }
        }
    }
}

// The read-only flag of the memory store cannot be set through a statement, so this
// one stays here: the folder's probe file is refused, the file refuses to be opened for
// writing, and a probe that succeeds is removed again.
TEST(Denied, AStorageFolderThatRefusesNewEntriesIsNotWritable) {
    namespace vfs = foundation::storage::vfs;
    foundation::storage::provider::resetMemStorage();
    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    const vfs::AbsoluteIRI folder(u"mem://root/ro");
    vfs::Folder(folder, storage).createFolder();
    vfs::File(vfs::AbsoluteIRI(u"mem://root/ro/a.csv"), storage).createFile();
    const auto perms = [](const std::string& location, const std::string& type) {
        const qfs::Json s = call("p = getPerms_impl('" + location + "', '" + type + "', 'Foo')");
        const qfs::Json& v = s["outputs"][0]["value"][0];
        return std::make_pair(v["Readable"]["value"][0].get<bool>(),
                              v["Writable"]["value"][0].get<bool>());
    };
    for (const bool locked : {false, true}) {
        SCOPED_TRACE(locked ? "read-only" : "writable");
        foundation::storage::provider::setMemFolderReadOnly(folder, locked);
        EXPECT_EQ(perms("mem://root/ro", "Folder"), std::make_pair(true, !locked));
        EXPECT_EQ(perms("mem://root/ro/a.csv", "File"), std::make_pair(true, !locked));
        EXPECT_EQ(vfs::Folder(folder, storage).listAll().size(), 1U);
    }
    foundation::storage::provider::resetMemStorage();
}

}  // namespace
}  // namespace zkfs::test
