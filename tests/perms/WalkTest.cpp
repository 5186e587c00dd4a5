// modifyPerms_impl on folder trees: the order of the three walks, which entries each scope
// reaches, links inside a tree, and failure reports.
#include "PermsTestSupport.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace zkfs::test::perms {
namespace {

using namespace QUORIN::io::filesystem::filePermissions;  // NOLINT
using Names = std::vector<fl::ustring>;

// Listed by name: a.txt, b.txt, sub1, sub1/c.txt, sub1/deep, sub1/deep/d.txt, sub2,
// sub2/e.txt.
const std::vector<std::string> kFiles = {"a.txt", "b.txt", "sub1/c.txt", "sub1/deep/d.txt",
                                         "sub2/e.txt"};
const std::vector<std::string> kFolders = {"", "sub1", "sub1/deep", "sub2"};

class PermsWalkTest : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        for (const auto& f : kFiles) tree.makeFile(f, "x");
    }

    // The tree stays root's, readable and searchable by all: every change by another user
    // fails, so the failure rows show the order in which changes were tried.
    void makeForeignButListable() {
        if (!runningAsRoot()) GTEST_SKIP() << "needs a tree owned by another user";
        for (const auto& d : kFolders) tree.setMode(d, 0755);
        for (const auto& f : kFiles) tree.setMode(f, 0644);
    }

    // Everything belongs to the unprivileged user, who then changes it for real.
    void handToUnprivileged() {
        if (!runningAsRoot()) return;  // already unprivileged: the tree is ours
        tree.handTo(unprivilegedIds().uid, unprivilegedIds().gid);
    }

    Names paths(const std::vector<std::string>& relative) const {
        Names out;
        for (const auto& r : relative) out.push_back(tree.upath(r));
        return out;
    }

    static Names namesOf(const vqArray* failures) {
        Names out;
        for (const auto& row : failureRows(failures)) out.push_back(row.name);
        return out;
    }

    TempTree tree;
};

TEST_F(PermsWalkTest, RemovingReadIsBottomUpContentsThenSubfoldersInReverseThenTheFolder) {
    makeForeignButListable();
    const Names expected = paths({"a.txt", "b.txt", "sub1/c.txt", "sub1/deep/d.txt", "sub2/e.txt",
                                  "sub2", "sub1/deep", "sub1", ""});
    const fl::ustring root = tree.upath("");
    runUnprivileged([&] {
        const auto out = modifyPermsOut(root, u"Folder", request({{"Readable", false}}), u"all");
        EXPECT_EQ(dimsOf(out.get()), (Dims{expected.size(), 1}));
        EXPECT_EQ(namesOf(out.get()), expected);
        for (const auto& row : failureRows(out.get())) {
            EXPECT_EQ(row.cause, u"Operation not permitted");
        }
    });
}

TEST_F(PermsWalkTest, BottomUpWithScopeFilesLeavesSubfoldersButEndsWithTheFolder) {
    makeForeignButListable();
    const Names expected =
        paths({"a.txt", "b.txt", "sub1/c.txt", "sub1/deep/d.txt", "sub2/e.txt", ""});
    const fl::ustring root = tree.upath("");
    runUnprivileged([&] {
        const auto out = modifyPermsOut(
            root, u"Folder", request({{"Writable", true}, {"Readable", false}}), u"files");
        EXPECT_EQ(namesOf(out.get()), expected);
    });
}

TEST_F(PermsWalkTest, GrantingReadIsTopDownEachFolderBeforeItsFiles) {
    makeForeignButListable();
    const Names expected = paths({"", "a.txt", "b.txt", "sub1", "sub1/c.txt", "sub1/deep",
                                  "sub1/deep/d.txt", "sub2", "sub2/e.txt"});
    const fl::ustring root = tree.upath("");
    runUnprivileged([&] {
        for (const char16_t* scope : {u"files", u"all"}) {
            const auto out = modifyPermsOut(
                root, u"Folder", request({{"Readable", true}, {"Writable", true}}), scope);
            EXPECT_EQ(namesOf(out.get()), expected);
        }
    });
}

TEST_F(PermsWalkTest, TopDownWithFilesFirstLooksAtTheFilesThenTheSubfolders) {
    makeForeignButListable();
    tree.makeFile("sub1/z.txt");
    tree.makeFolder("sub1/a-folder");
    tree.setMode("sub1/z.txt", 0644);
    tree.setMode("sub1/a-folder", 0755);
    const Names expected =
        paths({"", "a.txt", "b.txt", "sub1", "sub1/c.txt", "sub1/z.txt", "sub1/a-folder",
               "sub1/deep", "sub1/deep/d.txt", "sub2", "sub2/e.txt"});
    const fl::ustring root = tree.upath("");
    runUnprivileged([&] {
        const auto out = modifyPermsOut(root, u"Folder", request({{"Readable", true}}), u"files");
        EXPECT_EQ(namesOf(out.get()), expected);
    });
}

TEST_F(PermsWalkTest, WithoutReadableTheWalkIsFlatFolderFirstThenTheListing) {
    makeForeignButListable();
    const fl::ustring root = tree.upath("");
    const Names filesExpected =
        paths({"", "a.txt", "b.txt", "sub1/c.txt", "sub1/deep/d.txt", "sub2/e.txt"});
    const Names foldersExpected = paths({"", "sub1", "sub1/deep", "sub2"});
    const Names allExpected = paths({"", "a.txt", "b.txt", "sub1", "sub1/c.txt", "sub1/deep",
                                     "sub1/deep/d.txt", "sub2", "sub2/e.txt"});
    runUnprivileged([&] {
        EXPECT_EQ(
            namesOf(
                modifyPermsOut(root, u"Folder", request({{"Writable", false}}), u"files").get()),
            filesExpected);
        EXPECT_EQ(
            namesOf(
                modifyPermsOut(root, u"Folder", request({{"Writable", false}}), u"folders").get()),
            foldersExpected);
        EXPECT_EQ(
            namesOf(modifyPermsOut(root, u"Folder", request({{"Writable", false}}), u"all").get()),
            allExpected);
    });
}

TEST_F(PermsWalkTest, WithoutAnOutputTheFirstFailureThrowsAndNothingChanges) {
    makeForeignButListable();
    const auto before = tree.snapshot();
    const fl::ustring root = tree.upath("");
    const fl::ustring first = tree.upath("a.txt");
    runUnprivileged([&] {
        EXPECT_IDENTIFIED_ERROR(
            modifyPermsNoOut(root, u"Folder", request({{"Readable", false}}), u"all"),
            "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions", first,
            std::string("Operation not permitted"));
        EXPECT_IDENTIFIED_ERROR(
            modifyPermsNoOut(root, u"Folder", request({{"Readable", true}}), u"files"),
            "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions", root,
            std::string("Operation not permitted"));
    });
    EXPECT_EQ(tree.snapshot(), before);
}

TEST_F(PermsWalkTest, WithoutAnOutputAListingThatFailsDoesNotEndTheWalk) {
    handToUnprivileged();
    tree.setMode("sub1", 0);  // the recursive listing cannot enter it
    tree.setMode("", 0700);
    const fl::ustring root = tree.upath("");
    runUnprivileged([&] {
        EXPECT_NO_THROW(
            modifyPermsNoOut(root, u"Folder", request({{"Readable", false}}), u"all"));
    });
    // The folder itself is still changed last.
    EXPECT_EQ(tree.mode(""), 0300U);
}

TEST_F(PermsWalkTest, RemovingReadRecursivelyStillReachesEveryEntry) {
    handToUnprivileged();
    const fl::ustring root = tree.upath("");
    runUnprivileged([&] {
        const auto out = modifyPermsOut(root, u"Folder", request({{"Readable", false}}), u"all");
        EXPECT_TRUE(failureRows(out.get()).empty());
    });
    for (const auto& f : kFiles) EXPECT_EQ(tree.mode(f) & 0400U, 0U) << f;
    for (const auto& d : kFolders) EXPECT_EQ(tree.mode(d) & 0400U, 0U) << d;
}

TEST_F(PermsWalkTest, GrantingReadOpensEveryFolderBeforeListingIt) {
    for (const auto& f : kFiles) tree.setMode(f, 0);
    for (const auto& d : {"sub1/deep", "sub1", "sub2"}) tree.setMode(d, 0300);
    handToUnprivileged();
    tree.setMode("", 0300);
    const fl::ustring root = tree.upath("");
    runUnprivileged([&] {
        const auto out = modifyPermsOut(
            root, u"Folder", request({{"Readable", true}, {"Writable", true}}), u"files");
        EXPECT_TRUE(failureRows(out.get()).empty());
    });
    for (const auto& f : kFiles) EXPECT_EQ(tree.mode(f), 0600U) << f;
    for (const auto& d : kFolders) EXPECT_EQ(tree.mode(d), 0700U) << d;
}

TEST_F(PermsWalkTest, AFlatWalkWithScopeFilesLeavesSubfoldersAlone) {
    for (const auto& f : kFiles) tree.setMode(f, 0644);
    for (const auto& d : kFolders) tree.setMode(d, 0755);
    modifyPermsNoOut(tree.upath(""), u"Folder", request({{"Writable", false}}), u"files");
    for (const auto& f : kFiles) EXPECT_EQ(tree.mode(f), 0444U) << f;
    EXPECT_EQ(tree.mode(""), 0555U);
    for (const auto& d : {"sub1", "sub1/deep", "sub2"}) EXPECT_EQ(tree.mode(d), 0755U) << d;
}

TEST_F(PermsWalkTest, ScopeFoldersInAFlatWalkChangesOnlyFolders) {
    for (const auto& f : kFiles) tree.setMode(f, 0600);
    for (const auto& d : kFolders) tree.setMode(d, 0700);
    modifyPermsNoOut(tree.upath(""), u"Folder", request({{"OtherExecute", true}}), u"folders");
    for (const auto& f : kFiles) EXPECT_EQ(tree.mode(f), 0600U) << f;
    for (const auto& d : kFolders) EXPECT_EQ(tree.mode(d), 0701U) << d;
}

TEST_F(PermsWalkTest, AnEmptyScopeChangesTheFolderAlone) {
    for (const auto& f : kFiles) tree.setMode(f, 0600);
    for (const auto& d : kFolders) tree.setMode(d, 0700);
    const auto out = modifyPermsOut(tree.upath(""), u"Folder", request({{"Readable", false}}), u"");
    EXPECT_EQ(dimsOf(out.get()), (Dims{0, 0}));
    EXPECT_EQ(tree.mode(""), 0300U);
    for (const auto& f : kFiles) EXPECT_EQ(tree.mode(f), 0600U) << f;
    for (const auto& d : {"sub1", "sub1/deep", "sub2"}) EXPECT_EQ(tree.mode(d), 0700U) << d;
}

TEST_F(PermsWalkTest, OneUnchangeableEntryIsTheOnlyRowAndTheOthersChange) {
    if (!runningAsRoot()) GTEST_SKIP() << "needs an entry owned by another user";
    handToUnprivileged();
    ASSERT_EQ(::lchown(tree.path("sub1/c.txt").c_str(), 0, 0), 0);
    tree.setMode("sub1/c.txt", 0644);
    const fl::ustring root = tree.upath("");
    const fl::ustring stuck = tree.upath("sub1/c.txt");
    runUnprivileged([&] {
        const auto out = modifyPermsOut(root, u"Folder", request({{"OtherWrite", true}}), u"all");
        EXPECT_EQ(dimsOf(out.get()), (Dims{1, 1}));
        EXPECT_EQ(namesOf(out.get()), Names{stuck});
    });
    EXPECT_EQ(tree.mode("sub1/c.txt"), 0644U);
    for (const auto& f : {"a.txt", "b.txt", "sub1/deep/d.txt", "sub2/e.txt"}) {
        EXPECT_EQ(tree.mode(f) & 02U, 02U) << f;
    }
}

// Links inside a tree: one to a file in the tree, one to a file outside it, one dangling.
class PermsWalkLinkTest : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        tree.makeFile("f");
        tree.setMode("f", 0600);
        outside.makeFile("o");
        outside.setMode("o", 0600);
        tree.makeLink("f", "l-inside");
        tree.makeLink(outside.path("o").string(), "l-outside");
        tree.makeLink("missing", "l-dangling");
    }

    unique_vqarray_ptr walk(const char16_t* scope) {
        return modifyPermsOut(tree.upath(""), u"Folder", request({{"GroupRead", true}}), scope);
    }

    TempTree tree;
    TempTree outside;
};

TEST_F(PermsWalkLinkTest, ScopeFilesSkipsLinks) {
    EXPECT_TRUE(failureRows(walk(u"files").get()).empty());
    EXPECT_EQ(tree.mode("f"), 0640U);
    EXPECT_EQ(outside.mode("o"), 0600U);
}

TEST_F(PermsWalkLinkTest, ScopeSymbolicLinksTriesEachLinkItselfAndNothingElse) {
    const auto rows = failureRows(walk(u"symboliclinks").get());
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].name, tree.upath("l-dangling"));
    EXPECT_EQ(rows[1].name, tree.upath("l-inside"));
    EXPECT_EQ(rows[2].name, tree.upath("l-outside"));
    EXPECT_EQ(tree.mode("f"), 0600U);
    EXPECT_EQ(outside.mode("o"), 0600U);
}

TEST_F(PermsWalkLinkTest, ScopeAllChangesFilesAndTriesLinksWithoutFollowing) {
    const auto rows = failureRows(walk(u"all").get());
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].name, tree.upath("l-dangling"));
    EXPECT_EQ(tree.mode("f"), 0640U);
    EXPECT_EQ(outside.mode("o"), 0600U);
}

TEST_F(PermsWalkLinkTest, ScopeTargetChangesEachLinksOwnTargetAndReportsTheDanglingOne) {
    const auto rows = failureRows(walk(u"target").get());
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].name, tree.upath("l-dangling"));
    EXPECT_EQ(rows[0].cause, catalogText<BrokenSymlink>(tree.upath("l-dangling")));
    EXPECT_EQ(tree.mode("f"), 0640U);
    EXPECT_EQ(outside.mode("o"), 0640U);
}

TEST_F(PermsWalkLinkTest, ALinkedFolderIsNeverDescended) {
    outside.makeFile("deep/x");
    outside.setMode("deep/x", 0600);
    tree.makeLink(outside.path("deep").string(), "l-folder");
    for (const char16_t* scope : {u"files", u"all", u"symboliclinks"}) {
        (void)walk(scope);
        (void)modifyPermsOut(tree.upath(""), u"Folder", request({{"Readable", false}}), scope);
        (void)modifyPermsOut(tree.upath(""), u"Folder", request({{"Readable", true}}), scope);
    }
    EXPECT_EQ(outside.mode("deep/x"), 0600U);
    EXPECT_EQ(outside.mode("o"), 0600U);
}

}  // namespace
}  // namespace zkfs::test::perms
