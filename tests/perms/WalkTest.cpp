// modifyPerms_impl on folder trees: the order of the three walks, which entries each scope
// reaches, links inside a tree, and failure reports.
#include "PermsTestSupport.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "fl/i18n/unicode.hpp"

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

// Every change fails, so the failure rows show the order in which changes were tried.
// Removing read walks bottom-up (contents, subfolders in reverse, the folder last; scope
// "files" leaves the subfolders out); granting read walks top-down, each folder before its
// files; without "Readable" the walk is flat, the folder first, then the listing.
TEST_F(PermsWalkTest, TheOrderOfEachWalk) {
    makeForeignButListable();
    struct Row {
        std::vector<std::pair<std::string, bool>> request;
        const char16_t* scope;
        std::vector<std::string> expected;
    };
    const std::vector<std::string> topDown = {
        "", "a.txt", "b.txt", "sub1", "sub1/c.txt", "sub1/deep", "sub1/deep/d.txt", "sub2",
        "sub2/e.txt"};
    const std::vector<Row> rows = {
        {{{"Readable", false}},
         u"all",
         {"a.txt", "b.txt", "sub1/c.txt", "sub1/deep/d.txt", "sub2/e.txt", "sub2", "sub1/deep",
          "sub1", ""}},
        {{{"Writable", true}, {"Readable", false}},
         u"files",
         {"a.txt", "b.txt", "sub1/c.txt", "sub1/deep/d.txt", "sub2/e.txt", ""}},
        {{{"Readable", true}, {"Writable", true}}, u"files", topDown},
        {{{"Readable", true}, {"Writable", true}}, u"all", topDown},
        {{{"Writable", false}},
         u"files",
         {"", "a.txt", "b.txt", "sub1/c.txt", "sub1/deep/d.txt", "sub2/e.txt"}},
        {{{"Writable", false}}, u"folders", {"", "sub1", "sub1/deep", "sub2"}},
        {{{"Writable", false}}, u"all", topDown},
    };
    const fl::ustring root = tree.upath("");
    std::vector<Names> expected;
    for (const Row& row : rows) expected.push_back(paths(row.expected));
    runUnprivileged([&] {
        for (std::size_t i = 0; i < rows.size(); ++i) {
            SCOPED_TRACE(i);
            const auto out =
                modifyPermsOut(root, u"Folder", request(rows[i].request), rows[i].scope);
            EXPECT_EQ(dimsOf(out.get()), (Dims{expected[i].size(), 1}));
            EXPECT_EQ(namesOf(out.get()), expected[i]);
            for (const auto& row : failureRows(out.get())) {
                EXPECT_EQ(row.cause, u"Operation not permitted");
            }
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

// Flat walks change the folder and what their scope names in it (its files, or its
// subfolders), never what lies deeper; an empty scope changes the folder alone.
TEST_F(PermsWalkTest, FlatWalksChangeWhatTheirScopeNames) {
    struct Row {
        const char16_t* scope;
        std::pair<std::string, bool> request;
        unsigned files, top, subfolders;  // the modes after, from 0600 and 0700
    };
    const Row rows[] = {
        {u"files", {"Writable", false}, 0400, 0500, 0700},
        {u"folders", {"OtherExecute", true}, 0600, 0701, 0701},
        {u"", {"Readable", false}, 0600, 0300, 0700},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(row.scope));
        for (const auto& f : kFiles) tree.setMode(f, 0600);
        for (const auto& d : kFolders) tree.setMode(d, 0700);
        const auto out =
            modifyPermsOut(tree.upath(""), u"Folder", request({row.request}), row.scope);
        EXPECT_EQ(dimsOf(out.get()), (Dims{0, 0}));
        for (const auto& f : kFiles) EXPECT_EQ(tree.mode(f), row.files) << f;
        EXPECT_EQ(tree.mode(""), row.top);
        for (const auto& d : {"sub1", "sub1/deep", "sub2"})
            EXPECT_EQ(tree.mode(d), row.subfolders) << d;
    }
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

// Scope "files" skips links; "symboliclinks" tries each link itself and nothing else;
// "all" changes files and tries links without following them; "target" changes each
// link's own target and reports the dangling one.
TEST_F(PermsWalkLinkTest, WhatEachScopeDoesWithLinks) {
    struct Row {
        const char16_t* scope;
        std::vector<std::string> failures;
        unsigned inside, outsideMode;
    };
    const Row rows[] = {
        {u"files", {}, 0640, 0600},
        {u"symboliclinks", {"l-dangling", "l-inside", "l-outside"}, 0600, 0600},
        {u"all", {"l-dangling", "l-inside", "l-outside"}, 0640, 0600},
        {u"target", {"l-dangling"}, 0640, 0640},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(row.scope));
        tree.setMode("f", 0600);
        outside.setMode("o", 0600);
        const auto failures = failureRows(walk(row.scope).get());
        ASSERT_EQ(failures.size(), row.failures.size());
        for (std::size_t i = 0; i < failures.size(); ++i)
            EXPECT_EQ(failures[i].name, tree.upath(row.failures[i])) << i;
        EXPECT_EQ(tree.mode("f"), row.inside);
        EXPECT_EQ(outside.mode("o"), row.outsideMode);
    }
    const auto dangling = failureRows(walk(u"target").get());
    ASSERT_EQ(dangling.size(), 1U);
    EXPECT_EQ(dangling[0].cause, catalogText<BrokenSymlink>(tree.upath("l-dangling")));
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
