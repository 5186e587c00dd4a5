// getPerms_impl: names, order, links, file IRIs, missing paths, cloud locations, bad input.
#include "PermsTestSupport.hpp"
#include "quorin/io/filesystem/core/Log.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "foundation/storage/provider/MemProvider.hpp"
#include "foundation/storage/vfs/vfs.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace zkfs::test::perms {
namespace {

namespace vfs = foundation::storage::vfs;

class PermsQueryTest : public LiveArrayTest {
protected:
    TempTree tree;
};

TEST_F(PermsQueryTest, TwoInputsReportAllNineNamesInTableOrder) {
    tree.makeFile("a.txt", "x");
    tree.setMode("a.txt", 0640);
    const auto result = getPerms(ArgList(stringScalar(tree.upath("a.txt")), charRow(u"File")));
    EXPECT_EQ(logicalFields(result.get()), kMode0640Fields);
}

TEST_F(PermsQueryTest, EachNameReadsItsOwnBit) {
    tree.makeFile("f");
    const std::vector<std::pair<std::string, unsigned>> table = {
        {"Readable", 0400}, {"Writable", 0200},  {"UserExecute", 0100},
        {"GroupRead", 040}, {"GroupWrite", 020}, {"GroupExecute", 010},
        {"OtherRead", 04},  {"OtherWrite", 02},  {"OtherExecute", 01}};
    for (const auto& [name, bit] : table) {
        SCOPED_TRACE(name);
        tree.setMode("f", bit);
        const auto result =
            getPerms(ArgList(charRow(tree.upath("f")), charRow(u"File"), stringScalar(u16(name))));
        EXPECT_EQ(logicalFields(result.get()), (Fields{{name, true}}));
        tree.setMode("f", 0777 & ~bit);
        const auto cleared =
            getPerms(ArgList(charRow(tree.upath("f")), charRow(u"File"), stringScalar(u16(name))));
        EXPECT_EQ(logicalFields(cleared.get()), (Fields{{name, false}}));
    }
}

// Requested names keep their order in every text form; an unknown name is false; a name
// given twice is reported once, at its first place; a file IRI is its local path.
TEST_F(PermsQueryTest, RequestedNamesInEveryForm) {
    tree.makeFile("with space.txt");
    tree.setMode("with space.txt", 0604);
    const fl::ustring path = tree.upath("with space.txt");
    const fl::ustring iri = u16("file://" + tree.path("with%20space.txt").string());
    struct Row {
        const char* what;
        fl::ustring location;
        std::function<unique_vqarray_ptr()> names;
        Fields expected;
    };
    const Row rows[] = {
        {"strings", path, [] { return stringArray({1, 2}, {u"OtherRead", u"Readable"}); },
         {{"OtherRead", true}, {"Readable", true}}},
        {"cell", path,
         [] { return cellRow(charRow(u"Foo"), charRow(u"GroupWrite"), charRow(u"Writable")); },
         {{"Foo", false}, {"GroupWrite", false}, {"Writable", true}}},
        {"char", path, [] { return charRow(u"Foo"); }, {{"Foo", false}}},
        {"twice", path,
         [] { return stringArray({3, 1}, {u"Writable", u"OtherWrite", u"Writable"}); },
         {{"Writable", true}, {"OtherWrite", false}}},
        {"file IRI", iri, [] { return stringArray({1, 2}, {u"Readable", u"GroupRead"}); },
         {{"Readable", true}, {"GroupRead", false}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const auto result = getPerms(ArgList(charRow(row.location), charRow(u"File"), row.names()));
        EXPECT_EQ(logicalFields(result.get()), row.expected);
    }
}

TEST_F(PermsQueryTest, ALinkReportsItsOwnModeNotItsTargets) {
    tree.makeFile("target");
    tree.setMode("target", 0);
    tree.makeLink("target", "link");
    for (bool withNames : {false, true}) {
        SCOPED_TRACE(withNames);
        ArgList args(charRow(tree.upath("link")), charRow(u"Other"));
        if (withNames) args.add(stringArray({1, 2}, {u"Readable", u"OtherExecute"}));
        const auto result = getPerms(std::move(args));
        for (const auto& [name, value] : logicalFields(result.get())) {
            EXPECT_TRUE(value) << name;  // Linux gives every link mode 0777
        }
    }
}

TEST_F(PermsQueryTest, AMissingPathReportsEveryPermissionFalse) {
    const auto result = getPerms(ArgList(charRow(tree.upath("nothing")), charRow(u"File")));
    const auto fields = logicalFields(result.get());
    ASSERT_EQ(fields.size(), 9U);
    for (const auto& [name, value] : fields) EXPECT_FALSE(value) << name;
}

TEST_F(PermsQueryTest, ZeroOutputsStillFillTheFirstSlot) {
    tree.makeFile("f");
    ArgList args(charRow(tree.upath("f")), charRow(u"File"));
    OutputSlots out;
    getPerms_impl(0, out.data(), args.count(), args.data());
    EXPECT_EQ(logicalFields(out[0]).size(), 9U);
}

TEST_F(PermsQueryTest, BadArgumentsAreIdentifiedErrors) {
    tree.makeFile("f");
    const fl::ustring path = tree.upath("f");
    const fl::ustring inputName = catalogText<QUORIN::FileUtils::inputPath>();
    EXPECT_IDENTIFIED_ERROR(getPerms(ArgList(charRow(path), charRow(u"File"), doubleScalar(1))),
                            "QUORIN:string:MustBeCharCellArrayOrString", inputName);
    EXPECT_IDENTIFIED_ERROR(getPerms(ArgList(charRow(path), charRow(u"File"),
                                             stringArray({1, 2}, {u"Readable", std::nullopt}))),
                            "QUORIN:string:MustBeCellArrayOfStrings", inputName);
    EXPECT_IDENTIFIED_ERROR(getPerms(ArgList(charRow(path), charRow(u"File"),
                                             cellRow(charRow(u"Readable"), doubleScalar(2)))),
                            "QUORIN:string:MustBeCellArrayOfStrings", inputName);
    EXPECT_IDENTIFIED_ERROR(getPerms(ArgList(doubleScalar(3), charRow(u"File"))),
                            "QUORIN:string:MustBeStringScalarOrCharacterVector");
    EXPECT_IDENTIFIED_ERROR(getPerms(ArgList(missingString(), charRow(u"File"))),
                            "QUORIN:string:MissingNotSupported");
}

TEST_F(PermsQueryTest, AFolderWithoutSearchPermissionOnTheWayFailsAsAFilesystemError) {
    if (!runningAsRoot()) GTEST_SKIP() << "needs to hand the tree to another user";
    tree.makeFile("closed/f");
    tree.handTo(unprivilegedIds().uid, unprivilegedIds().gid);
    tree.setMode("closed", 0600);
    const fl::ustring path = tree.upath("closed/f");
    runUnprivileged([&] {
        EXPECT_THROW(getPerms(ArgList(charRow(path), charRow(u"File"))),
                     std::filesystem::filesystem_error);
    });
}

// The in-memory provider stands for a cloud location.
class PermsCloudQueryTest : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        foundation::storage::provider::resetMemStorage();
        storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
        vfs::Folder(vfs::AbsoluteIRI(u"mem://root/data"), storage).createFolder();
        vfs::File(vfs::AbsoluteIRI(u"mem://root/data/a.csv"), storage).createFile();
    }
    void TearDown() override {
        foundation::storage::provider::resetMemStorage();
        LiveArrayTest::TearDown();
    }
    std::size_t entriesInData() const {
        return vfs::Folder(vfs::AbsoluteIRI(u"mem://root/data"), storage).listAll().size();
    }
    vfs::StorageSystemReference storage;
};

// Whatever names are asked for, a cloud location reports "Readable" and "Writable", the
// latter probed without leaving anything behind; nothing there gives no fields at all.
TEST_F(PermsCloudQueryTest, ReadableAndWritableOfFoldersAndFiles) {
    const Fields both{{"Readable", true}, {"Writable", true}};
    const Fields readOnly{{"Readable", true}, {"Writable", false}};
    struct Row {
        const char16_t* location;
        const char16_t* type;
        Fields writable, readOnlyFolder;
    };
    const Row rows[] = {
        {u"mem://root/data", u"Folder", both, readOnly},
        {u"mem://root/data/a.csv", u"File", both, readOnly},
        {u"mem://root/none", u"File", {}, {}},
    };
    for (const bool locked : {false, true}) {
        foundation::storage::provider::setMemFolderReadOnly(vfs::AbsoluteIRI(u"mem://root/data"),
                                                            locked);
        for (const Row& row : rows) {
            SCOPED_TRACE(fl::i18n::to_utf8(row.location) + (locked ? " locked" : ""));
            const auto result = getPerms(ArgList(
                charRow(row.location), charRow(row.type),
                stringArray({1, 3}, {u"GroupRead", u"Readable", u"Foo"})));
            EXPECT_EQ(logicalFields(result.get()), locked ? row.readOnlyFolder : row.writable);
            EXPECT_EQ(entriesInData(), 1U);
        }
    }
}

TEST_F(PermsCloudQueryTest, AStorageFailureReachesTheUserAsItIs) {
    EXPECT_IDENTIFIED_ERROR(
        getPerms(ArgList(charRow(u"mem://elsewhere/x"), charRow(u"File"), charRow(u"Readable"))),
        "QUORIN:storage:invalidLocation", u"mem://elsewhere/x");
}

}  // namespace
}  // namespace zkfs::test::perms

namespace zkfs::test::perms {
namespace {

namespace core = quorin::io::filesystem::core;

class PermsLoggingTest : public PermsCloudQueryTest {
protected:
    void TearDown() override {
        core::log::setDebugLogging(false);
        PermsCloudQueryTest::TearDown();
    }
};

TEST_F(PermsLoggingTest, EveryCaughtProbeFailureIsLoggedOnlyWhenDebugLoggingIsOn) {
    foundation::storage::provider::setMemFolderReadOnly(vfs::AbsoluteIRI(u"mem://root/data"), true);
    core::log::setDebugLogging(false);
    ::testing::internal::CaptureStderr();
    (void)getPerms(ArgList(charRow(u"mem://root/data"), charRow(u"Folder"), charRow(u"Readable")));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");

    core::log::setDebugLogging(true);
    ::testing::internal::CaptureStderr();
    (void)getPerms(ArgList(charRow(u"mem://root/data"), charRow(u"Folder"), charRow(u"Readable")));
    const std::string written = ::testing::internal::GetCapturedStderr();
    // The refused probe file: caught, logged with its diagnostic, and turned into false.
    EXPECT_NE(written.find("Exception caught: "), std::string::npos) << written;
    EXPECT_NE(written.find("foundation::storage::vfs::Exception"), std::string::npos) << written;
    EXPECT_NE(written.find("Permission denied: 'mem://root/data/"), std::string::npos) << written;
    EXPECT_NE(written.find("src/filesystemPerms"), std::string::npos) << written;
    EXPECT_NE(written.find("basicPermsOnCloudPaths"), std::string::npos) << written;
}

TEST_F(PermsLoggingTest, ABrokenLinkTargetIsLoggedBeforeItBecomesACause) {
    TempTree tree;
    tree.makeLink("gone", "l");
    core::log::setDebugLogging(true);
    ::testing::internal::CaptureStderr();
    const auto out =
        modifyPermsOut(tree.upath("l"), u"Other", request({{"GroupRead", true}}), u"target");
    const std::string written = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(failureRows(out.get()).size(), 1U);
    EXPECT_NE(written.find("Exception caught: "), std::string::npos) << written;
}

}  // namespace
}  // namespace zkfs::test::perms
