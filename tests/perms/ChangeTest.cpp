// modifyPerms_impl on one file or link: precedence of additions, link scopes, the cloud
// refusal, failure outputs and bad input.
#include "PermsTestSupport.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "foundation/storage/provider/MemProvider.hpp"
#include "foundation/storage/vfs/vfs.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zkfs::test::perms {
namespace {

namespace vfs = foundation::storage::vfs;
using namespace QUORIN::io::filesystem::filePermissions;  // NOLINT

class PermsChangeTest : public LiveArrayTest {
protected:
    TempTree tree;
};

// One file, one call each: additions win over removals of the same call, a removal takes
// only its own bits, names outside the table change nothing, a file IRI is its local path,
// and a scope other than "all" on a file is a silent no-op (no failure struct at all).
TEST_F(PermsChangeTest, ModeChangesOfOneFile) {
    struct Row {
        const char* what;
        unsigned before;
        std::vector<std::pair<std::string, bool>> request;
        std::optional<fl::ustring> scope;
        unsigned after;
        bool viaIRI = false;
    };
    const std::vector<Row> rows = {
        {"addition wins", 0200, {{"Readable", true}, {"Writable", false}}, std::nullopt, 0600},
        {"removal alone", 0666, {{"Writable", false}, {"OtherWrite", false}}, std::nullopt, 0464},
        {"several additions", 0, {{"UserExecute", true}, {"GroupRead", true}, {"OtherExecute", true}},
         u"all", 0141},
        {"unknown names", 0640, {{"Foo", false}, {"readable", false}}, std::nullopt, 0640},
        {"file IRI", 0600, {{"OtherRead", true}}, std::nullopt, 0604, true},
        {"scope files", 0600, {{"OtherRead", true}}, u"files", 0600},
        {"scope folders", 0600, {{"OtherRead", true}}, u"folders", 0600},
        {"scope target", 0600, {{"OtherRead", true}}, u"target", 0600},
        {"empty scope", 0600, {{"OtherRead", true}}, u"", 0600},
    };
    tree.makeFile("f");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        tree.setMode("f", row.before);
        const fl::ustring where =
            row.viaIRI ? u16("file://" + tree.path("f").string()) : tree.upath("f");
        const auto out = modifyPermsOut(where, u"File", request(row.request), row.scope);
        EXPECT_EQ(tree.mode("f"), row.after);
        if (row.scope && *row.scope != u"all") {
            EXPECT_EQ(out, nullptr);
        } else {
            EXPECT_EQ(dimsOf(out.get()), (Dims{0, 0}));
            EXPECT_TRUE(failureRows(out.get()).empty());
        }
    }
    // Without an output nothing is returned either way.
    tree.setMode("f", 0666);
    modifyPermsNoOut(tree.upath("f"), u"File", request({{"Writable", false}}), std::nullopt);
    EXPECT_EQ(tree.mode("f"), 0466U);
}

TEST_F(PermsChangeTest, ALinkScopeOnAFileOrAFileScopeOnALinkChangesNothing) {
    tree.makeFile("t");
    tree.setMode("t", 0600);
    tree.makeLink("t", "l");
    const auto out =
        modifyPermsOut(tree.upath("l"), u"Other", request({{"OtherRead", true}}), u"all");
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(tree.mode("t"), 0600U);
}

TEST_F(PermsChangeTest, ALinkItselfCannotBeChangedAndSaysWhy) {
    tree.makeFile("t");
    tree.setMode("t", 0600);
    tree.makeLink("t", "l");
    const fl::ustring link = tree.upath("l");
    for (const auto& scope :
         {std::optional<fl::ustring>(u"symboliclinks"), std::optional<fl::ustring>()}) {
        const auto out = modifyPermsOut(link, u"Other", request({{"OtherRead", true}}), scope);
        const auto rows = failureRows(out.get());
        ASSERT_EQ(rows.size(), 1U);
        EXPECT_EQ(dimsOf(out.get()), (Dims{1, 1}));
        EXPECT_EQ(rows[0].name, link);
        EXPECT_FALSE(rows[0].cause.empty());
        EXPECT_EQ(tree.mode("t"), 0600U) << "the target must never be followed";
    }
    try {
        modifyPermsNoOut(link, u"Other", request({{"OtherRead", true}}), u"symboliclinks");
        ADD_FAILURE() << "changing a link itself must throw without an output";
    } catch (const foundation::core::except::IMsgIDException& e) {
        EXPECT_EQ(e.GetID(), "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions");
        const auto& args = e.GetBaseMsgIDObj().getArgs();
        ASSERT_EQ(args.size(), 2U);
        EXPECT_EQ(std::get<fl::ustring>(args[0]), link);
        EXPECT_FALSE(std::get<std::string>(args[1]).empty());
    }
    EXPECT_EQ(tree.mode("t"), 0600U);
}

TEST_F(PermsChangeTest, ScopeTargetChangesTheLinksTarget) {
    tree.makeFile("dir/t");
    tree.setMode("dir/t", 0600);
    tree.makeLink("dir/t", "l");
    const auto out =
        modifyPermsOut(tree.upath("l"), u"Other", request({{"GroupRead", true}}), u"target");
    EXPECT_TRUE(failureRows(out.get()).empty());
    EXPECT_EQ(tree.mode("dir/t"), 0640U);
}

TEST_F(PermsChangeTest, ScopeTargetOnADanglingLinkReportsABrokenLink) {
    tree.makeLink("gone", "l");
    const fl::ustring link = tree.upath("l");
    const auto before = tree.snapshot();
    const auto out = modifyPermsOut(link, u"Other", request({{"GroupRead", true}}), u"target");
    const auto rows = failureRows(out.get());
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].name, link);
    EXPECT_EQ(rows[0].cause, catalogText<BrokenSymlink>(link));
    // Without an output the broken link is not an error at all.
    EXPECT_NO_THROW(modifyPermsNoOut(link, u"Other", request({{"GroupRead", true}}), u"target"));
    EXPECT_EQ(tree.snapshot(), before);
}

TEST_F(PermsChangeTest, ScopeTargetBehindAClosedFolderReportsTheDeniedTarget) {
    if (!runningAsRoot()) GTEST_SKIP() << "needs to hand the tree to another user";
    tree.makeFile("closed/t");
    tree.makeLink("closed/t", "l");
    tree.handTo(unprivilegedIds().uid, unprivilegedIds().gid);
    tree.setMode("closed", 0600);
    const fl::ustring link = tree.upath("l");
    runUnprivileged([&] {
        const auto out = modifyPermsOut(link, u"Other", request({{"GroupRead", true}}), u"target");
        const auto rows = failureRows(out.get());
        ASSERT_EQ(rows.size(), 1U);
        EXPECT_EQ(rows[0].name, link);
        EXPECT_EQ(rows[0].cause, catalogText<TargetAccessDenied>(link));
    });
}

TEST_F(PermsChangeTest, AFileOfAnotherUserFailsWithTheSystemsReason) {
    if (!runningAsRoot()) GTEST_SKIP() << "needs a file owned by another user";
    tree.makeFile("f");
    tree.setMode("f", 0644);
    tree.setMode("", 0755);
    const fl::ustring path = tree.upath("f");
    runUnprivileged([&] {
        const auto out =
            modifyPermsOut(path, u"File", request({{"OtherWrite", true}}), std::nullopt);
        const auto rows = failureRows(out.get());
        ASSERT_EQ(rows.size(), 1U);
        EXPECT_EQ(rows[0].name, path);
        EXPECT_EQ(rows[0].cause, u"Operation not permitted");
        EXPECT_IDENTIFIED_ERROR(
            modifyPermsNoOut(path, u"File", request({{"OtherWrite", true}}), u"all"),
            "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions", path,
            std::string("Operation not permitted"));
    });
    EXPECT_EQ(tree.mode("f"), 0644U);
}

TEST_F(PermsChangeTest, AMissingFileIsAFailure) {
    const fl::ustring path = tree.upath("none");
    const auto out = modifyPermsOut(path, u"File", request({{"Readable", true}}), std::nullopt);
    const auto rows = failureRows(out.get());
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].cause, u"No such file or directory");
}

TEST_F(PermsChangeTest, BadRequestsAndArgumentsAreIdentifiedErrors) {
    tree.makeFile("f");
    tree.setMode("f", 0600);
    const fl::ustring path = tree.upath("f");
    {
        ArgList args(charRow(path), charRow(u"File"), doubleScalar(1));
        OutputSlots out;
        EXPECT_IDENTIFIED_ERROR(modifyPerms_impl(1, out.data(), args.count(), args.data()),
                                "QUORIN:io:common:validation:ExpectedScalarStruct");
        EXPECT_EQ(out[0], nullptr);
    }
    {
        ArgList args(charRow(path), charRow(u"File"), structArray({1, 2}, {"Readable"}, [] {
                         std::vector<FieldValues> v;
                         v.push_back(fields(field("Readable", logicalScalar(true))));
                         v.push_back(fields(field("Readable", logicalScalar(true))));
                         return v;
                     }()));
        OutputSlots out;
        EXPECT_IDENTIFIED_ERROR(modifyPerms_impl(1, out.data(), args.count(), args.data()),
                                "QUORIN:io:common:validation:ExpectedScalarStruct");
    }
    EXPECT_IDENTIFIED_ERROR(
        modifyPermsOut(path, u"File", structScalar(field("Readable", doubleScalar(1))),
                       std::nullopt),
        "QUORIN:io:common:validation:InternalError", std::string("Expected logical scalar"));
    EXPECT_IDENTIFIED_ERROR(
        modifyPermsOut(path, u"File", structScalar(field("Readable", nullptr)), std::nullopt),
        "QUORIN:io:common:validation:InternalError", std::string("Expected logical scalar"));
    {
        ArgList args(charRow(path), charRow(u"File"), request({{"Readable", true}}),
                     logicalScalar(true), doubleScalar(7));
        OutputSlots out;
        EXPECT_IDENTIFIED_ERROR(modifyPerms_impl(1, out.data(), args.count(), args.data()),
                                "QUORIN:string:MustBeStringScalarOrCharacterVector");
    }
    EXPECT_EQ(tree.mode("f"), 0600U);
}

class PermsCloudChangeTest : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        foundation::storage::provider::resetMemStorage();
        vfs::File(vfs::AbsoluteIRI(u"mem://root/a.csv"),
                  Hexfarrow::QuorinStorageSystem::GetStorageSystemReference())
            .createFile();
    }
    void TearDown() override {
        foundation::storage::provider::resetMemStorage();
        LiveArrayTest::TearDown();
    }
};

TEST_F(PermsCloudChangeTest, ACloudLocationIsRefusedThrownOrReturned) {
    const fl::ustring where = u"mem://root/a.csv";
    EXPECT_IDENTIFIED_ERROR(modifyPermsNoOut(where, u"File", request({{"Readable", true}}), u"all"),
                            "QUORIN:io:filesystem:filePermissions:CannotModifyCloudPermissions");
    const auto out = modifyPermsOut(where, u"File", request({{"Readable", true}}), std::nullopt);
    const auto rows = failureRows(out.get());
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(dimsOf(out.get()), (Dims{1, 1}));
    EXPECT_EQ(rows[0].name, where);
    EXPECT_EQ(rows[0].cause, catalogText<CannotModifyCloudPermissions>());
    // Refused before the request is even read.
    EXPECT_IDENTIFIED_ERROR(modifyPermsNoOut(where, u"Folder", doubleScalar(1), u"all"),
                            "QUORIN:io:filesystem:filePermissions:CannotModifyCloudPermissions");
}

}  // namespace
}  // namespace zkfs::test::perms
