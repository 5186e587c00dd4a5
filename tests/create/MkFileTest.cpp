// mkFileFcn on real trees and on the in-memory store: creation with parents, the replace
// rule, the thrown versus the reported form of storage failures, and argument errors.
#include "Helpers.hpp"
#include "quorin/gateway/Identifiers.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "foundation/core/except/Exception.hpp"
#include "foundation/storage/provider/MemProvider.hpp"
#include "foundation/storage/vfs/vfs.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace zkfs::test::create {
namespace {

namespace fs = std::filesystem;
namespace vfs = foundation::storage::vfs;

constexpr const char* kAlreadyExists = "QUORIN:virtualfilesystem:resourceAlreadyExists";

void mkFile(int outCount, OutputSlots& out, const ArgList& args) {
    mkFileFcn(outCount, out.data(), args.count(), args.data());
}

std::string contentOf(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// The catalog text that a reported failure must carry.
template <class ID>
fl::ustring messageOf(const fl::ustring& argument) {
    return foundation::core::except::Exception<ID>(ID(argument)).GetUnicodeMessageTxt();
}

class MkFile : public LiveArrayTest {
protected:
    TempTree tree;
};

TEST_F(MkFile, CreatesAnEmptyFileAndEveryMissingParent) {
    const fs::path file = tree.path("output/2024/q1/report.txt");
    OutputSlots out(3);
    mkFile(3, out, ArgList(charRow(u16(file))));

    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
    EXPECT_EQ(dimsOf(out[0]), (Dims{1, 1}));
    EXPECT_EQ(stringsOf(out[1]), std::vector<StringElement>{u""});
    EXPECT_EQ(stringsOf(out[2]), std::vector<StringElement>{u""});
    EXPECT_TRUE(fs::is_regular_file(file));
    EXPECT_EQ(fs::file_size(file), 0U);
    EXPECT_TRUE(fs::is_directory(tree.path("output/2024")));
}

TEST_F(MkFile, FillsOnlyTheResultsAskedFor) {
    OutputSlots none(3);
    mkFile(0, none, ArgList(charRow(tree.upath("a.txt"))));
    EXPECT_EQ(none[0], nullptr);
    EXPECT_TRUE(fs::is_regular_file(tree.path("a.txt")));

    OutputSlots one(3);
    mkFile(1, one, ArgList(stringScalar(tree.upath("b.txt"))));
    EXPECT_EQ(logicalsOf(one[0]), std::vector<bool>{true});
    EXPECT_EQ(one[1], nullptr);

    OutputSlots two(3);
    mkFile(2, two, ArgList(charRow(tree.upath("c.txt"))));
    EXPECT_EQ(logicalsOf(two[0]), std::vector<bool>{true});
    EXPECT_EQ(stringsOf(two[1]), std::vector<StringElement>{u""});
    EXPECT_EQ(two[2], nullptr);
}

TEST_F(MkFile, ExistingFileIsKeptWithoutAReplaceRule) {
    const fs::path file = tree.makeFile("notes.txt", "keep me");
    const fl::ustring path = u16(file);

    OutputSlots thrown;
    EXPECT_IDENTIFIED_ERROR(mkFile(0, thrown, ArgList(charRow(path))), kAlreadyExists, path);
    EXPECT_EQ(thrown[0], nullptr);

    OutputSlots out(3);
    mkFile(3, out, ArgList(charRow(path)));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
    EXPECT_EQ(stringsOf(out[1]),
              std::vector<StringElement>{
                  messageOf<QUORIN::virtualfilesystem::resourceAlreadyExists>(path)});
    EXPECT_EQ(stringsOf(out[2]),
              std::vector<StringElement>{u"QUORIN:virtualfilesystem:resourceAlreadyExists"});
    EXPECT_EQ(contentOf(file), "keep me");
}

TEST_F(MkFile, PreserveKeepsTheFileAndOverwriteEmptiesIt) {
    const fs::path file = tree.makeFile("data.csv", "a,b\n1,2\n");
    const fl::ustring path = u16(file);

    OutputSlots kept(1);
    mkFile(1, kept, ArgList(charRow(path), charRow(u"ReplacementRule"), charRow(u"preserve")));
    EXPECT_EQ(logicalsOf(kept[0]), std::vector<bool>{false});
    EXPECT_EQ(contentOf(file), "a,b\n1,2\n");

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

TEST_F(MkFile, OverwriteDoesNotReplaceAFolder) {
    tree.makeFolder("results/keep");
    const fl::ustring path = tree.upath("results");
    OutputSlots out;
    // The removal refuses a folder with a plain I/O failure, which has no name of its own.
    EXPECT_IDENTIFIED_ERROR(
        mkFile(0, out, ArgList(charRow(path), charRow(u"ReplacementRule"), charRow(u"overwrite"))),
        "QUORIN:virtualfilesystem:unknownError", path);
    EXPECT_TRUE(fs::is_directory(tree.path("results/keep")));
}

TEST_F(MkFile, NameWithoutValueIsThrownWithAnEmptyArgumentEvenWithResults) {
    const fl::ustring path = tree.upath("never.txt");
    OutputSlots three(3);
    EXPECT_IDENTIFIED_ERROR(mkFile(3, three, ArgList(charRow(path), charRow(u"ReplacementRule"))),
                            "QUORIN:io:filesystem:common:NoValueSpecified", u"");
    EXPECT_EQ(three[0], nullptr);

    // A lone status is placed before the options are looked at.
    OutputSlots one(1);
    EXPECT_IDENTIFIED_ERROR(mkFile(1, one, ArgList(charRow(path), doubleScalar(7))),
                            "QUORIN:io:filesystem:common:NoValueSpecified", u"");
    EXPECT_EQ(logicalsOf(one[0]), std::vector<bool>{false});
    EXPECT_FALSE(fs::exists(tree.path("never.txt")));
}

TEST_F(MkFile, ReplaceRuleErrorsAreAlwaysThrown) {
    const fl::ustring path = tree.upath("never.txt");
    OutputSlots out(3);
    EXPECT_IDENTIFIED_ERROR(
        mkFile(3, out, ArgList(charRow(path), charRow(u"Replace"), charRow(u"overwrite"))),
        "QUORIN:io:filesystem:core:InvalidReplacementRuleName", u"Replace");
    EXPECT_IDENTIFIED_ERROR(
        mkFile(1, out, ArgList(charRow(path), charRow(u"ReplacementRule"), charRow(u"over"))),
        "QUORIN:io:filesystem:core:InvalidReplacementRuleValue", u"over");
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
    EXPECT_IDENTIFIED_ERROR(
        mkFile(0, out, ArgList(charRow(path), charRow(u"ReplacementRule"), doubleScalar(1))),
        "QUORIN:string:MustBeStringScalarOrCharacterVector");
    EXPECT_FALSE(fs::exists(tree.path("never.txt")));
}

TEST_F(MkFile, RefusesPathsOfTheWrongKind) {
    OutputSlots out(3);
    const char* kScalarText = "QUORIN:string:MustBeStringScalarOrCharacterVector";
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(doubleScalar(1))), kScalarText);
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charMatrix({u"ab", u"cd"}))), kScalarText);
    EXPECT_IDENTIFIED_ERROR(
        mkFile(0, out, ArgList(stringArray({1, 2}, {fl::ustring(u"a"), fl::ustring(u"b")}))),
        kScalarText);
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(cellRow(charRow(u"a")))), kScalarText);
    EXPECT_IDENTIFIED_ERROR(mkFile(2, out, ArgList(missingString())),
                            "QUORIN:string:MissingNotSupported");
    EXPECT_EQ(out[0], nullptr);
}

TEST_F(MkFile, CountsAreCheckedFirst) {
    OutputSlots out(4);
    EXPECT_IDENTIFIED_ERROR(mkFile(4, out, ArgList(doubleScalar(1))), "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(
        mkFile(1, out, ArgList(doubleScalar(1), doubleScalar(1), doubleScalar(1), doubleScalar(1))),
        "QUORIN:TooManyInputs");
    EXPECT_IDENTIFIED_ERROR(mkFile(1, out, ArgList()), "QUORIN:NotEnoughInputs");
    EXPECT_EQ(out[0], nullptr);
}

TEST_F(MkFile, EncodedURLIsThrownEncodedAndReportedDecoded) {
    tree.makeFile("sensor log (march).txt", "x");
    const fl::ustring url = fileIRI(tree.path("sensor log (march).txt"));
    ASSERT_NE(url.find(u"%20"), fl::ustring::npos);
    fl::ustring decoded = u"file://" + tree.upath("sensor log (march).txt");

    OutputSlots thrown;
    EXPECT_IDENTIFIED_ERROR(mkFile(0, thrown, ArgList(charRow(url))), kAlreadyExists, url);

    OutputSlots out(3);
    mkFile(3, out, ArgList(charRow(url)));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
    EXPECT_EQ(stringsOf(out[1]),
              std::vector<StringElement>{
                  messageOf<QUORIN::virtualfilesystem::resourceAlreadyExists>(decoded)});
    EXPECT_EQ(
        stringsOf(out[2]),
        std::vector<StringElement>{fl::ustring(u"QUORIN:virtualfilesystem:resourceAlreadyExists")});
    EXPECT_EQ(contentOf(tree.path("sensor log (march).txt")), "x");
}

TEST_F(MkFile, FileURLsCreateLocalFiles) {
    const fl::ustring url = fileIRI(tree.path("from url/über.txt"));
    OutputSlots out(1);
    mkFile(1, out, ArgList(stringScalar(url)));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
    EXPECT_TRUE(fs::is_regular_file(tree.path("from url/über.txt")));
}

TEST_F(MkFile, ThrownPathIsThePreparedPath) {
    // Links in the parent folders are resolved, and "." segments dropped, before the
    // path is named in an error.
    tree.makeFolder("real");
    tree.makeFile("real/f.txt");
    tree.makeLink("real", "via");
    OutputSlots out;
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charRow(tree.upath("via/./f.txt")))),
                            kAlreadyExists, tree.upath("real/f.txt"));
}

TEST_F(MkFile, LinkAtThePathIsNeitherFollowedNorReplaced) {
    tree.makeLink("missing-target.txt", "dangling");
    const fl::ustring path = tree.upath("dangling");
    OutputSlots out;
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charRow(path))), kAlreadyExists, path);
    EXPECT_FALSE(fs::exists(tree.path("missing-target.txt")));
    EXPECT_EQ(linkText(tree.path("dangling")), "missing-target.txt");
}

TEST_F(MkFile, ParentThatIsAFileIsLeftAlone) {
    tree.makeFile("plain", "content");
    const fl::ustring path = tree.upath("plain/child.txt");
    OutputSlots out(3);
    mkFile(3, out, ArgList(charRow(path)));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
    EXPECT_EQ(stringsOf(out[2]), std::vector<StringElement>{
                                     fl::ustring(u"QUORIN:virtualfilesystem:resourceNotFound")});
    EXPECT_EQ(contentOf(tree.path("plain")), "content");
}

TEST_F(MkFile, EmptyPathIsAnInvalidLocation) {
    OutputSlots out(2);
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charEmpty())),
                            "QUORIN:virtualfilesystem:invalidLocation", u"");
    mkFile(2, out, ArgList(charRow(u"")));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
    EXPECT_EQ(stringsOf(out[1]), std::vector<StringElement>{
                                     messageOf<QUORIN::virtualfilesystem::invalidLocation>(u"")});
}

TEST_F(MkFile, SchemesAreTranslatedCrosswise) {
    // A scheme without a provider is an invalid IRI; an IRI that does not parse is no
    // valid URL.
    const fl::ustring https = u"https://data.example.org/v1/summary.csv";
    OutputSlots out(3);
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charRow(https))),
                            "QUORIN:virtualfileio:path:invalidIRI", https);
    mkFile(3, out, ArgList(charRow(https)));
    EXPECT_EQ(stringsOf(out[2]),
              std::vector<StringElement>{fl::ustring(u"QUORIN:virtualfileio:path:invalidIRI")});

    const fl::ustring broken = u"mem://[broken/x.txt";
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charRow(broken))),
                            "QUORIN:virtualfileio:localtoremote:notValidURL", broken);
}

class MkFileInMemory : public MkFile {
protected:
    void SetUp() override {
        MkFile::SetUp();
        foundation::storage::provider::resetMemStorage();
    }
    void TearDown() override {
        foundation::storage::provider::resetMemStorage();
        MkFile::TearDown();
    }
};

TEST_F(MkFileInMemory, CreatesWithParentsAndHonoursTheReplaceRule) {
    const fl::ustring url = u"mem://root/project/output/report.txt";
    OutputSlots out(3);
    mkFile(3, out, ArgList(charRow(url)));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    EXPECT_EQ(vfs::exists(vfs::AbsoluteIRI(url), storage),
              foundation::storage::provider::ExistenceType::File);
    EXPECT_EQ(vfs::exists(vfs::AbsoluteIRI(u"mem://root/project/output"), storage),
              foundation::storage::provider::ExistenceType::Folder);

    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charRow(url))), kAlreadyExists, url);
    mkFile(1, out, ArgList(charRow(url), charRow(u"ReplacementRule"), charRow(u"overwrite")));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
}

TEST_F(MkFileInMemory, ReadOnlyFolderAndForeignAuthority) {
    OutputSlots out(3);
    mkFile(0, out, ArgList(charRow(u"mem://root/locked/keep.txt")));
    foundation::storage::provider::setMemFolderReadOnly(vfs::AbsoluteIRI(u"mem://root/locked"),
                                                        true);
    const fl::ustring url = u"mem://root/locked/new%20file.txt";
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charRow(url))),
                            "QUORIN:virtualfilesystem:permissionDenied", url);
    mkFile(3, out, ArgList(charRow(url)));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
    EXPECT_EQ(stringsOf(out[1]),
              std::vector<StringElement>{messageOf<QUORIN::virtualfilesystem::permissionDenied>(
                  u"mem://root/locked/new file.txt")});

    const fl::ustring foreign = u"mem://elsewhere/x.txt";
    EXPECT_IDENTIFIED_ERROR(mkFile(0, out, ArgList(charRow(foreign))),
                            "QUORIN:virtualfilesystem:invalidLocation", foreign);
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
