// Subtrees that the caller may not read or search: every walk goes on past them and
// changes exactly what it changes in a tree without them; paths below them resolve to
// nothing and are no links; a change below them is refused with the system's reason.
#include "FaultsSupport.hpp"
#include "PermsTestSupport.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace zkfs::test::faults {
namespace {

using perms::failureRows;
using perms::modifyPermsNoOut;
using perms::modifyPermsOut;
using perms::request;

const std::vector<std::string> kFiles = {"a.txt", "b.txt", "sub1/c.txt", "sub1/deep/d.txt",
                                         "sub2/e.txt"};
const std::vector<std::string> kFolders = {"sub1", "sub1/deep", "sub2", ""};
// Entries whose fate must not depend on sub1 being closed.
const std::vector<std::string> kOutside = {"", "a.txt", "b.txt", "sub2", "sub2/e.txt"};

bool isInside(const fl::ustring& path, const fl::ustring& folder) {
    return path == folder || path.starts_with(folder + u"/");
}

class Denied : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        for (TempTree* t : {&tree, &control}) {
            for (const auto& f : kFiles) t->makeFile(f, "x");
            t->makeLink("e.txt", "sub2/link");
        }
    }

    // Every entry gets `fileMode`/`folderMode`, sub1 in `tree` gets `closed`, and both
    // trees go to the user who then runs the calls.
    void prepare(unsigned fileMode, unsigned folderMode, unsigned closed) {
        for (TempTree* t : {&tree, &control}) {
            for (const auto& f : kFiles) t->setMode(f, fileMode);
            for (const auto& d : kFolders) t->setMode(d, folderMode);
            if (runningAsRoot()) t->handTo(unprivilegedIds().uid, unprivilegedIds().gid);
        }
        tree.setMode("sub1", closed);
    }

    TempTree tree;
    TempTree control;  // the same tree, nothing closed
};

// The three walks (flat, bottom-up, top-down) in each scope, past a folder closed
// entirely (000) or closed to listing only (300), compared with the same walk over the
// same tree with nothing closed.
TEST_F(Denied, EveryWalkChangesEverythingOutsideAClosedSubfolderAndNamesOnlyIt) {
    struct Row {
        const char* what;
        std::vector<std::pair<std::string, bool>> request;
        unsigned fileMode;
        unsigned folderMode;
    };
    const std::vector<Row> walks = {
        {"flat", {{"Writable", false}}, 0644, 0755},
        {"bottom-up", {{"Readable", false}}, 0644, 0755},
        {"top-down", {{"Readable", true}, {"OtherRead", true}}, 0200, 0300},
    };
    for (const Row& walk : walks) {
        for (const char16_t* scope : {u"files", u"folders", u"all", u"symboliclinks", u"target"}) {
            for (const unsigned closed : {0000U, 0300U}) {
                SCOPED_TRACE(std::string(walk.what) + " " + bytesOf(scope) + " sub1 mode " +
                             std::to_string(closed));
                prepare(walk.fileMode, walk.folderMode, closed);
                const fl::ustring root = tree.upath("");
                const fl::ustring controlRoot = control.upath("");
                const fl::ustring sub1 = tree.upath("sub1");
                runUnprivileged([&] {
                    LiveArrayGuard guard;
                    const auto out = modifyPermsOut(root, u"Folder", request(walk.request), scope);
                    const auto controlOut =
                        modifyPermsOut(controlRoot, u"Folder", request(walk.request), scope);
                    // Outside sub1 the report is the one of the open tree, row for row.
                    std::vector<fl::ustring> outside;
                    bool named = false;
                    for (const auto& row : failureRows(out.get())) {
                        EXPECT_FALSE(row.cause.empty());
                        named = named || row.name == sub1;
                        if (!isInside(row.name, sub1))
                            outside.push_back(row.name.substr(root.size()));
                    }
                    std::vector<fl::ustring> expected;
                    for (const auto& row : failureRows(controlOut.get())) {
                        expected.push_back(row.name.substr(controlRoot.size()));
                    }
                    EXPECT_EQ(outside, expected);
                    // A listing of sub1 itself is refused: that is a failure, not silence.
                    if (closed == 0 && !walk.request[0].second) {
                        EXPECT_TRUE(named) << "no failure names the closed folder";
                    }
                });
                for (const auto& e : kOutside) {
                    EXPECT_EQ(tree.mode(e), control.mode(e)) << "'" << e << "'";
                }
                // Granting read opens a 300 folder before it is listed: nothing is lost.
                if (closed == 0300 && walk.request[0].second) {
                    for (const auto& e : kFiles) EXPECT_EQ(tree.mode(e), control.mode(e)) << e;
                }
            }
        }
    }
}

// With no output, a listing that fails is no permission failure: the walk ends normally
// with everything outside the closed folder changed.
TEST_F(Denied, WithoutAnOutputAClosedSubfolderDoesNotStopTheRest) {
    prepare(0644, 0755, 0);
    const fl::ustring root = tree.upath("");
    const fl::ustring controlRoot = control.upath("");
    runUnprivileged([&] {
        LiveArrayGuard guard;
        for (const char16_t* scope : {u"files", u"all"}) {
            EXPECT_NO_THROW(
                modifyPermsNoOut(root, u"Folder", request({{"Writable", false}}), scope));
            EXPECT_NO_THROW(
                modifyPermsNoOut(root, u"Folder", request({{"Readable", false}}), scope));
            modifyPermsNoOut(controlRoot, u"Folder", request({{"Writable", false}}), scope);
            modifyPermsNoOut(controlRoot, u"Folder", request({{"Readable", false}}), scope);
        }
    });
    for (const auto& e : kOutside) EXPECT_EQ(tree.mode(e), control.mode(e)) << "'" << e << "'";
}

// Below a folder that cannot be searched nothing can be seen: such paths resolve to
// nothing, are no links, and a change names the path with the system's reason. Below a
// folder that can be searched but not listed, names still work.
TEST_F(Denied, PathsBelowAClosedFolderAnswerAsNothingThere) {
    tree.makeLink("c.txt", "sub1/link");
    prepare(0644, 0755, 0);
    const fl::ustring file = tree.upath("sub1/c.txt");
    const fl::ustring link = tree.upath("sub1/link");
    runUnprivileged([&] {
        LiveArrayGuard guard;
        for (const fl::ustring& p : {file, link}) {
            SCOPED_TRACE(bytesOf(p));
            const Resolved r = resolve(p);
            EXPECT_EQ(r.path, u"");
            EXPECT_EQ(r.type, u"None");
            const Resolved a = resolveWithAttributes(p);
            EXPECT_EQ(a.type, u"None");
            EXPECT_FALSE(a.readable);
            EXPECT_FALSE(a.writable);
            EXPECT_TRUE(std::isnan(a.lastModified));
            EXPECT_EQ(a.size, 0.0);
            EXPECT_FALSE(isSymlink(p).isLink);
        }
        EXPECT_IDENTIFIED_ERROR(
            modifyPermsNoOut(file, u"File", request({{"Writable", false}}), std::nullopt),
            "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions", file,
            std::string("Permission denied"));
        const auto out = modifyPermsOut(file, u"File", request({{"Writable", false}}), u"all");
        const auto rows = failureRows(out.get());
        ASSERT_EQ(rows.size(), 1U);
        EXPECT_EQ(rows[0].name, file);
        EXPECT_EQ(rows[0].cause, u"Permission denied");
        // The query keeps the standard library's own error for a status it cannot read.
        EXPECT_THROW((void)perms::getPerms(ArgList(stringScalar(file), charRow(u"File"))),
                     std::filesystem::filesystem_error);
    });
    tree.setMode("sub1", 0755);
    EXPECT_EQ(tree.mode("sub1/c.txt"), 0644U);

    tree.setMode("sub1", 0300);
    runUnprivileged([&] {
        LiveArrayGuard guard;
        EXPECT_EQ(resolve(file).type, u"File");
        EXPECT_TRUE(resolveWithAttributes(file).readable);
        EXPECT_TRUE(isSymlink(link).isLink);
    });
}

}  // namespace
}  // namespace zkfs::test::faults
