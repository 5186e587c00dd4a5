// mkFileFcn on real trees and on the in-memory store: creation with parents, the replace
// rule, the thrown versus the reported form of storage failures, and argument errors.
#include "GatewayCall.hpp"
#include "Helpers.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "foundation/storage/provider/MemProvider.hpp"
#include "foundation/storage/vfs/vfs.hpp"
#include "resource_core/BaseMsgID.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace zkfs::test::create {
namespace {

namespace fs = std::filesystem;
namespace vfs = foundation::storage::vfs;
namespace provider = foundation::storage::provider;

constexpr const char* kAlreadyExists = "QUORIN:virtualfilesystem:resourceAlreadyExists";

void mkFile(int outCount, OutputSlots& out, const ArgList& args) {
    mkFileFcn(outCount, out.data(), args.count(), args.data());
}

ArgList withRule(const fl::ustring& path, const fl::ustring& rule) {
    return ArgList(charRow(path), charRow(u"ReplacementRule"), charRow(rule));
}

// The catalog text that a reported failure with this identifier must carry.
fl::ustring messageOf(const std::string& id, const fl::ustring& argument) {
    const auto colon = id.rfind(':');
    resource_core::BaseMsgID msg(id.substr(0, colon), id.substr(colon + 1));
    msg.appendArg(argument);
    return fl::i18n::MessageCatalog::get_message(msg, fl::i18n::ZkLocale::global());
}

class MkFile : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        provider::resetMemStorage();
    }
    void TearDown() override {
        provider::resetMemStorage();
        LiveArrayTest::TearDown();
    }
    TempTree tree;
};

// Slots past the results asked for stay empty; even none asked for creates the file.
TEST_F(MkFile, CreatesAnEmptyFileWithParentsFillingOnlyTheResultsAskedFor) {
    const std::vector<std::string> names = {"a.txt", "b.txt", "from url/\u00fcber.txt",
                                            "output/2024/q1/report.txt"};
    for (int n = 0; n < 4; ++n) {
        const fs::path file = tree.path(names[static_cast<std::size_t>(n)]);
        SCOPED_TRACE(file.native());
        const fl::ustring text = n == 2 ? fileIRI(file) : u16(file);
        OutputSlots out(3);
        mkFile(n, out, ArgList(n == 1 ? stringScalar(text) : charRow(text)));
        EXPECT_TRUE(fs::is_regular_file(file));
        EXPECT_EQ(fs::file_size(file), 0U);
        for (int i = 0; i < 3; ++i) {
            const vqArray* slot = out[static_cast<std::size_t>(i)];
            if (i >= n) {
                EXPECT_EQ(slot, nullptr) << i;
            } else if (i == 0) {
                EXPECT_EQ(dimsOf(slot), (Dims{1, 1}));
                EXPECT_EQ(logicalsOf(slot), std::vector<bool>{true});
            } else {
                EXPECT_EQ(stringsOf(slot), std::vector<StringElement>{u""}) << i;
            }
        }
    }
}

TEST_F(MkFile, PreserveKeepsTheFileAndOverwriteEmptiesIt) {
    const fs::path file = tree.makeFile("data.csv", "a,b\n1,2\n");
    const fl::ustring path = u16(file);
    OutputSlots kept(1);
    mkFile(1, kept, withRule(path, u"preserve"));
    EXPECT_EQ(logicalsOf(kept[0]), std::vector<bool>{false});
    EXPECT_EQ(fs::file_size(file), 8U);

    // The rule is compared after validation has put it into its canonical spelling.
    OutputSlots replaced(3);
    mkFile(
        3, replaced,
        ArgList(stringScalar(path), stringScalar(u"replacementrule"), stringScalar(u"OverWrite")));
    EXPECT_EQ(logicalsOf(replaced[0]), std::vector<bool>{true});
    EXPECT_EQ(stringsOf(replaced[1]), std::vector<StringElement>{u""});
    EXPECT_EQ(stringsOf(replaced[2]), std::vector<StringElement>{u""});
    EXPECT_TRUE(fs::is_regular_file(file));
    EXPECT_EQ(fs::file_size(file), 0U);
}

// A storage failure is thrown when no result is asked for (nothing stored) and reported
// as status, message and identifier otherwise; either way nothing changes. A URL is
// thrown as typed and reported decoded.
TEST_F(MkFile, StorageFailuresAreThrownOrReported) {
    tree.makeFile("notes.txt", "keep me");
    tree.makeFile("sensor log (march).txt", "x");
    tree.makeFile("real/f.txt");
    tree.makeLink("real", "via");
    tree.makeLink("missing-target.txt", "dangling");
    tree.makeFile("plain", "content");
    tree.makeFolder("results/keep");
    OutputSlots made;
    mkFile(0, made, ArgList(charRow(u"mem://root/locked/keep.txt")));
    provider::setMemFolderReadOnly(vfs::AbsoluteIRI(u"mem://root/locked"), true);
    const auto before = tree.snapshot();

    struct Row {
        fl::ustring path;
        std::string id;
        fl::ustring thrown;
        fl::ustring reported;
        bool overwrite = false;
    };
    const fl::ustring notes = tree.upath("notes.txt");
    const fl::ustring encoded = fileIRI(tree.path("sensor log (march).txt"));
    ASSERT_NE(encoded.find(u"%20"), fl::ustring::npos);
    const fl::ustring decoded = u"file://" + tree.upath("sensor log (march).txt");
    const fl::ustring real = tree.upath("real/f.txt");
    const fl::ustring dangling = tree.upath("dangling");
    const fl::ustring child = tree.upath("plain/child.txt");
    const fl::ustring folder = tree.upath("results");
    const fl::ustring https = u"https://data.example.org/v1/summary.csv";
    const fl::ustring broken = u"mem://[broken/x.txt";
    const fl::ustring locked = u"mem://root/locked/new%20file.txt";
    const fl::ustring foreign = u"mem://elsewhere/x.txt";
    const std::vector<Row> rows = {
        {notes, kAlreadyExists, notes, notes},
        {encoded, kAlreadyExists, encoded, decoded},
        // Links in the parents are resolved, and "." dropped, before the path is named.
        {tree.upath("via/./f.txt"), kAlreadyExists, real, real},
        // A link at the path is neither followed nor replaced.
        {dangling, kAlreadyExists, dangling, dangling},
        {child, "QUORIN:virtualfilesystem:resourceNotFound", child, child},
        {u"", "QUORIN:virtualfilesystem:invalidLocation", u"", u""},
        // The removal refuses a folder with a plain I/O failure, which has no name of its own.
        {folder, "QUORIN:virtualfilesystem:unknownError", folder, folder, true},
        // A scheme without a provider is an invalid IRI; an IRI that does not parse is no
        // valid URL.
        {https, "QUORIN:virtualfileio:path:invalidIRI", https, https},
        {broken, "QUORIN:virtualfileio:localtoremote:notValidURL", broken, broken},
        {locked, "QUORIN:virtualfilesystem:permissionDenied", locked,
         u"mem://root/locked/new file.txt"},
        {foreign, "QUORIN:virtualfilesystem:invalidLocation", foreign, foreign},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(u8(row.path));
        const auto args = [&] {
            return row.overwrite ? withRule(row.path, u"overwrite") : ArgList(charRow(row.path));
        };
        OutputSlots thrown(3);
        EXPECT_IDENTIFIED_ERROR(mkFile(0, thrown, args()), row.id, row.thrown);
        EXPECT_EQ(thrown[0], nullptr);
        OutputSlots out(3);
        mkFile(3, out, args());
        EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
        EXPECT_EQ(stringsOf(out[1]), std::vector<StringElement>{messageOf(row.id, row.reported)});
        EXPECT_EQ(stringsOf(out[2]), std::vector<StringElement>{u16(row.id)});
    }
    // The 0x0 char is the empty path too.
    EXPECT_IDENTIFIED_ERROR(mkFile(0, made, ArgList(charEmpty())),
                            "QUORIN:virtualfilesystem:invalidLocation", u"");
    EXPECT_EQ(tree.snapshot(), before);
}

TEST_F(MkFile, InMemoryCreatesWithParentsAndHonoursTheReplaceRule) {
    const fl::ustring url = u"mem://root/project/output/report.txt";
    OutputSlots out(3);
    mkFile(3, out, ArgList(charRow(url)));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    EXPECT_EQ(vfs::exists(vfs::AbsoluteIRI(url), storage), provider::ExistenceType::File);
    EXPECT_EQ(vfs::exists(vfs::AbsoluteIRI(u"mem://root/project/output"), storage),
              provider::ExistenceType::Folder);
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charRow(url))), kAlreadyExists, url);
    mkFile(1, out, withRule(url, u"overwrite"));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
}

// Argument errors are thrown even when results are asked for; a lone status is placed
// before the options are looked at.
TEST_F(MkFile, ArgumentErrorsAreAlwaysThrown) {
    const fl::ustring path = tree.upath("never.txt");
    OutputSlots three(3);
    EXPECT_IDENTIFIED_ERROR(mkFile(3, three, ArgList(charRow(path), charRow(u"ReplacementRule"))),
                            "QUORIN:io:filesystem:common:NoValueSpecified", u"");
    EXPECT_EQ(three[0], nullptr);
    EXPECT_IDENTIFIED_ERROR(
        mkFile(3, three, ArgList(charRow(path), charRow(u"Replace"), charRow(u"overwrite"))),
        "QUORIN:io:filesystem:core:InvalidReplacementRuleName", u"Replace");
    OutputSlots one(1);
    EXPECT_IDENTIFIED_ERROR(mkFile(1, one, ArgList(charRow(path), doubleScalar(7))),
                            "QUORIN:io:filesystem:common:NoValueSpecified", u"");
    EXPECT_EQ(logicalsOf(one[0]), std::vector<bool>{false});
    OutputSlots other(1);
    EXPECT_IDENTIFIED_ERROR(mkFile(1, other, withRule(path, u"over")),
                            "QUORIN:io:filesystem:core:InvalidReplacementRuleValue", u"over");
    EXPECT_EQ(logicalsOf(other[0]), std::vector<bool>{false});
    EXPECT_IDENTIFIED_ERROR(
        mkFile(0, one, ArgList(charRow(path), charRow(u"ReplacementRule"), doubleScalar(1))),
        "QUORIN:string:MustBeStringScalarOrCharacterVector");
    expectRefused(
        call<&mkFileFcn>,
        arrays(doubleScalar(1), charMatrix({u"ab", u"cd"}),
               stringArray({1, 2}, {fl::ustring(u"a"), fl::ustring(u"b")}), cellRow(charRow(u"a"))),
        "QUORIN:string:MustBeStringScalarOrCharacterVector", {});
    expectRefused(call<&mkFileFcn>, arrays(missingString()), "QUORIN:string:MissingNotSupported",
                  {});
    EXPECT_FALSE(fs::exists(tree.path("never.txt")));
}

TEST_F(MkFile, ReadOnlyParentFolderIsPermissionDenied) {
    tree.makeFolder("locked");
    if (runningAsRoot()) {
        const auto ids = unprivilegedIds();
        tree.handTo(ids.uid, ids.gid);
    }
    tree.setMode("locked", 0555);
    const fl::ustring direct = tree.upath("locked/new.txt");
    const fl::ustring nested = tree.upath("locked/sub/new.txt");
    runUnprivileged([&] {
        OutputSlots out(3);
        EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charRow(direct))),
                                "QUORIN:virtualfilesystem:permissionDenied", direct);
        mkFile(3, out, ArgList(charRow(nested)));
        EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
        EXPECT_EQ(
            stringsOf(out[2]),
            std::vector<StringElement>{fl::ustring(u"QUORIN:virtualfilesystem:permissionDenied")});
    });
    EXPECT_FALSE(fs::exists(tree.path("locked/new.txt")));
    EXPECT_FALSE(fs::exists(tree.path("locked/sub")));
}

}  // namespace
}  // namespace zkfs::test::create
