// mkFileFcn on real trees and on the in-memory store: creation with parents, the replace
// rule, the thrown versus the reported form of storage failures, and argument errors.
#include "GatewayCall.hpp"
#include "Helpers.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

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

// Files are made with their parents, on disk and in the store. Slots past the results
// asked for stay empty; even none asked for creates the file. The rule is compared after
// validation has put it into its canonical spelling.
TEST_F(MkFile, CreatesAnEmptyFileWithParentsFillingOnlyTheResultsAskedFor) {
    tree.makeFile("data.csv", "a,b\n1,2\n");
    struct Row {
        std::vector<fl::ustring> args;
        int outs;
        const char* made;
    };
    const std::vector<Row> rows = {
        {{tree.upath("a.txt")}, 0, "a.txt"},
        {{tree.upath("b.txt")}, 1, "b.txt"},
        {{fileIRI(tree.path("from url/\u00fcber.txt"))}, 2, "from url/\u00fcber.txt"},
        {{tree.upath("output/2024/q1/report.txt")}, 3, "output/2024/q1/report.txt"},
        {{tree.upath("data.csv"), u"replacementrule", u"OverWrite"}, 3, "data.csv"},
        {{u"mem://root/project/output/report.txt"}, 3, nullptr},
        {{u"mem://root/project/output/report.txt", u"ReplacementRule", u"overwrite"}, 1, nullptr},
    };
    for (std::size_t r = 0; r < rows.size(); ++r) {
        const Row& row = rows[r];
        SCOPED_TRACE(u8(row.args[0]));
        OutputSlots out(3);
        mkFile(row.outs, out, texts(row.args, r % 2 == 0));
        if (row.made != nullptr) {
            EXPECT_TRUE(fs::is_regular_file(tree.path(row.made)));
            EXPECT_EQ(fs::file_size(tree.path(row.made)), 0U);
        }
        // Now it is there, for the store too.
        EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charRow(row.args[0]))), kAlreadyExists,
                                row.args[0]);
        for (int i = 0; i < 3; ++i) {
            const vqArray* slot = out[static_cast<std::size_t>(i)];
            if (i >= row.outs) {
                EXPECT_EQ(slot, nullptr) << i;
            } else if (i == 0) {
                EXPECT_EQ(dimsOf(slot), (Dims{1, 1}));
                EXPECT_EQ(logicalsOf(slot), std::vector<bool>{true});
            } else {
                EXPECT_EQ(stringsOf(slot), std::vector<StringElement>{u""}) << i;
            }
        }
    }
    EXPECT_EQ(vfs::exists(vfs::AbsoluteIRI(u"mem://root/project/output"),
                          Hexfarrow::QuorinStorageSystem::GetStorageSystemReference()),
              provider::ExistenceType::Folder);
    tree.makeFile("kept.csv", "a,b\n");
    OutputSlots kept(1);
    mkFile(1, kept, withRule(tree.upath("kept.csv"), u"preserve"));
    EXPECT_EQ(logicalsOf(kept[0]), std::vector<bool>{false});
    EXPECT_EQ(fs::file_size(tree.path("kept.csv")), 4U);
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

    // The thrown and the reported argument are the path unless given.
    struct Row {
        fl::ustring path;
        std::string id;
        fl::ustring thrown = path;
        fl::ustring reported = thrown;
        bool overwrite = false;
    };
    const fl::ustring encoded = fileIRI(tree.path("sensor log (march).txt"));
    ASSERT_NE(encoded.find(u"%20"), fl::ustring::npos);
    const fl::ustring real = tree.upath("real/f.txt");
    const fl::ustring locked = u"mem://root/locked/new%20file.txt";
    const fl::ustring results = tree.upath("results");
    const std::vector<Row> rows = {
        {tree.upath("notes.txt"), kAlreadyExists},
        {encoded, kAlreadyExists, encoded, u"file://" + tree.upath("sensor log (march).txt")},
        // Links in the parents are resolved, and "." dropped, before the path is named.
        {tree.upath("via/./f.txt"), kAlreadyExists, real},
        // A link at the path is neither followed nor replaced.
        {tree.upath("dangling"), kAlreadyExists},
        {tree.upath("plain/child.txt"), "QUORIN:virtualfilesystem:resourceNotFound"},
        {u"", "QUORIN:virtualfilesystem:invalidLocation"},
        // The removal refuses a folder with a plain I/O failure, which has no name of its own.
        {results, "QUORIN:virtualfilesystem:unknownError", results, results, true},
        // A scheme without a provider is an invalid IRI; an IRI that does not parse is no
        // valid URL.
        {u"https://data.example.org/v1/summary.csv", "QUORIN:virtualfileio:path:invalidIRI"},
        {u"mem://[broken/x.txt", "QUORIN:virtualfileio:localtoremote:notValidURL"},
        {locked, "QUORIN:virtualfilesystem:permissionDenied", locked,
         u"mem://root/locked/new file.txt"},
        {u"mem://elsewhere/x.txt", "QUORIN:virtualfilesystem:invalidLocation"},
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

}  // namespace
}  // namespace zkfs::test::create
