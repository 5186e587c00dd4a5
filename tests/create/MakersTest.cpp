// The makers and the link test on real temporary trees and the in-memory store: mkFileFcn
// (creation with parents, the replace rule, the thrown versus the reported form of
// storage failures), isSymlinkFcn (links classified, dangling ones and loops included,
// with their target texts), mkSymlinkFcn (targets checked first and stored as typed, the
// replace rule for existing links only, schemes refused, the argument each error names),
// createWindowsShortcutFcn; permissions obeyed by every maker.
#include "zkfs/test/GatewayCall.hpp"
#include "quorin/gateway/Errors.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/provider/MemProvider.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/vfs.hpp"
#include "resource_core/BaseMsgID.hpp"
#include "resource_core/MessageArg.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace zkfs::test {
namespace {

namespace fs = std::filesystem;
namespace vfs = foundation::storage::vfs;
namespace provider = foundation::storage::provider;

fl::ustring u16(const std::filesystem::path& p) { return fl::i18n::to_ustring(p.native()); }
fl::ustring u16(const std::string& s) { return fl::i18n::to_ustring(s); }
std::string u8(const fl::ustring& s) { return fl::i18n::to_utf8(s); }

// The "file" IRI text of a local path, as the storage library spells it.
fl::ustring fileIRI(const std::filesystem::path& p) {
    return foundation::storage::vfs::toAbsoluteIRI(u"file", u16(p)).toString();
}

// What a link stores, or "" when the name is no link.
std::string linkText(const std::filesystem::path& p) {
    std::error_code ec;
    const auto target = std::filesystem::read_symlink(p, ec);
    return ec ? std::string() : target.native();
}

// Arguments all as char rows, or all as string scalars.
ArgList texts(const std::vector<fl::ustring>& all, bool asStrings = false) {
    ArgList args;
    for (const fl::ustring& text : all) args.add(asStrings ? stringScalar(text) : charRow(text));
    return args;
}

constexpr const char* kAlreadyExists = "QUORIN:virtualfilesystem:resourceAlreadyExists";

constexpr Call mkFile = call<&mkFileFcn>;
constexpr Call isSymlink = call<&isSymlinkFcn>;


// A fresh tree and an empty in-memory store for every test.
class Makers : public LiveArrayTest {
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
class MkFile : public Makers {};
class MkSymlink : public Makers {};

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
    mkFile(1, kept, texts({tree.upath("kept.csv"), u"ReplacementRule", u"preserve"}));
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
            return row.overwrite ? texts({row.path, u"ReplacementRule", u"overwrite"})
                                 : ArgList(charRow(row.path));
        };
        OutputSlots thrown(3);
        EXPECT_IDENTIFIED_ERROR(mkFile(0, thrown, args()), row.id, row.thrown);
        EXPECT_EQ(thrown[0], nullptr);
        OutputSlots out(3);
        mkFile(3, out, args());
        EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
        EXPECT_EQ(stringsOf(out[1]), std::vector<StringElement>{catalogMessage(row.id, row.reported)});
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
    EXPECT_IDENTIFIED_ERROR(mkFile(1, other, texts({path, u"ReplacementRule", u"over"})),
                            "QUORIN:io:filesystem:core:InvalidReplacementRuleValue", u"over");
    EXPECT_EQ(logicalsOf(other[0]), std::vector<bool>{false});
    EXPECT_IDENTIFIED_ERROR(
        mkFile(0, one, ArgList(charRow(path), charRow(u"ReplacementRule"), doubleScalar(1))),
        "QUORIN:string:MustBeStringScalarOrCharacterVector");
    expectRefused(
        call<&mkFileFcn>,
        arrays(charMatrix({u"ab", u"cd"}), stringArray({1, 2}, {fl::ustring(u"a"), fl::ustring(u"b")})),
        "QUORIN:string:MustBeStringScalarOrCharacterVector", {});
    expectRefused(call<&mkFileFcn>, arrays(missingString()), "QUORIN:string:MissingNotSupported",
                  {});
    EXPECT_FALSE(fs::exists(tree.path("never.txt")));
}

constexpr const char* kFileExists = "QUORIN:io:filesystem:symlink:FileExists";
constexpr const char* kTargetNotFound = "QUORIN:io:filesystem:symlink:TargetNotFound";

void mkSymlink(const ArgList& args, int outCount = 0) {
    OutputSlots out;
    mkSymlinkFcn(outCount, out.data(), args.count(), args.data());
    EXPECT_EQ(out[0], nullptr) << "mkSymlinkFcn returns nothing";
}

class IsSymlink : public Makers {
protected:
    void SetUp() override {
        Makers::SetUp();
        tree.makeFile("data/measurements.csv", "a,b\n");
        tree.makeFolder("data/raw");
        tree.makeLink("data/measurements.csv", "latest");      // relative, to a file
        tree.makeLink(tree.path("data/raw").native(), "raw");  // absolute, to a folder
        tree.makeLink("nowhere.csv", "dangling");
        tree.makeLink("loop-b", "loop-a");
        tree.makeLink("loop-a", "loop-b");
    }
};

// Both results asked for: whether each is a link and its target, in the argument's shape.
std::pair<std::vector<bool>, std::vector<StringElement>> links(const ArgList& args,
                                                               const Dims& dims) {
    OutputSlots out(2);
    isSymlink(2, out, args);
    EXPECT_EQ(vqGetClassID(out[0]), vqLOGICAL_CLASS);
    EXPECT_EQ(dimsOf(out[0]), dims);
    EXPECT_EQ(dimsOf(out[1]), dims);
    return {logicalsOf(out[0]), stringsOf(out[1])};
}

TEST_F(IsSymlink, StringArrayKeepsItsShapeAndSkipsMissingElements) {
    // 3x3, column-major: link, file, folder link; missing, dangling, nothing; and
    // locations under schemes where no link can live.
    const auto [isLink, targets] =
        links(ArgList(stringArray(
                  {3, 3}, {tree.upath("latest"), tree.upath("data/measurements.csv"),
                           tree.upath("raw"), std::nullopt, tree.upath("dangling"),
                           tree.upath("no/such/path"), fl::ustring(u"https://example.org/a"),
                           fl::ustring(u"mem://root/none"), fl::ustring(u"mem://[broken")})),
              {3, 3});
    EXPECT_EQ(isLink,
              (std::vector<bool>{true, false, true, false, true, false, false, false, false}));
    const std::vector<StringElement> expected{
        fileIRI(tree.path("data/measurements.csv")), u"", fileIRI(tree.path("data/raw")), u"",
        // A dangling link's target cannot be found: the element stays as created.
        u"", u"", u"", u"", u""};
    EXPECT_EQ(targets, expected);
    EXPECT_TRUE(links(ArgList(stringArray({0, 0}, {})), {0, 0}).first.empty());
    EXPECT_TRUE(links(ArgList(cellArray({1, 0}, {})), {1, 0}).first.empty());
}

// Relative names are taken from the current folder; a loop cannot be followed, yet it is a
// link, its target text its own (empty) resolved form; a link named by a URL answers with
// the local path of its target. Only the results asked for are filled, the first always.
TEST_F(IsSymlink, CellsRelativeNamesAndURLs) {
    InFolder here(tree.path("data"));
    const auto [isLink, targets] =
        links(ArgList(cellArray({5, 1}, arrays(charRow(u"../latest"), charRow(u"measurements.csv"),
                                               charRow(fileIRI(tree.path("raw"))),
                                               charRow(tree.upath("loop-a")), charEmpty()))),
              {5, 1});
    EXPECT_EQ(isLink, (std::vector<bool>{true, false, true, true, false}));
    EXPECT_EQ(targets, (std::vector<StringElement>{fileIRI(tree.path("data/measurements.csv")), u"",
                                                   u16(tree.path("data/raw")), u"", u""}));
    OutputSlots one(2);
    isSymlink(1, one, ArgList(charRow(tree.upath("latest"))));
    EXPECT_EQ(dimsOf(one[0]), (Dims{1, 1}));
    EXPECT_EQ(logicalsOf(one[0]), std::vector<bool>{true});
    EXPECT_EQ(one[1], nullptr);
    OutputSlots implicit(2);
    isSymlink(0, implicit, ArgList(charRow(tree.upath("data"))));
    EXPECT_EQ(logicalsOf(implicit[0]), std::vector<bool>{false});
    EXPECT_EQ(implicit[1], nullptr);
}

TEST_F(IsSymlink, WrongKindsOfArgumentNameTheInput) {
    const fl::ustring inputName = quorin::gateway::inputPathName();
    expectRefused(call<&isSymlinkFcn>, arrays(charMatrix({u"ab", u"cd"})),
                  "QUORIN:string:MustBeCharCellArrayOrString", {inputName});
    expectRefused(call<&isSymlinkFcn>, arrays(cellRow(charRow(tree.upath("latest")), doubleScalar(1))),
                  "QUORIN:string:MustBeCellArrayOfStrings", {inputName});
}

// Targets are checked from the current folder and stored as typed, so a relative one is
// read from the link's own folder; a relative link is made in the current folder; missing
// parents are made; a link there already, dangling or not, is replaced when the rule,
// completed from an unambiguous prefix, says so.
TEST_F(MkSymlink, MakesLinksStoringTheTargetAsTyped) {
    tree.makeFile("data/raw/measurements.csv", "a,b\n");
    tree.makeFile("data/summary.parquet", "PAR1");
    tree.makeFolder("views");
    tree.makeLink("old.txt", "current");
    tree.makeLink("vanished.txt", "stale");
    InFolder here(tree.path("views"));
    struct Row {
        std::vector<fl::ustring> args;
        const char* made;
    };
    const fl::ustring summary = tree.upath("data/summary.parquet");
    const std::vector<Row> rows = {
        {{tree.upath("latest.csv"), tree.upath("data/raw/measurements.csv")}, "latest.csv"},
        {{tree.upath("raw"), tree.upath("data/raw")}, "raw"},
        {{u"short", summary}, "views/short"},
        {{tree.upath("shortcuts/2024/raw-data"), tree.upath("data/raw")},
         "shortcuts/2024/raw-data"},
        {{tree.upath("views/summary"), u"../data/summary.parquet"}, "views/summary"},
        {{tree.upath("links/data"), fileIRI(tree.path("data/summary.parquet"))}, "links/data"},
        {{tree.upath("current"), summary, u"repl", u"OVER"}, "current"},
        {{tree.upath("stale"), summary, u"ReplacementRule", u"overwrite"}, "stale"},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].made);
        mkSymlink(texts(rows[i].args, i % 2 == 1));
        EXPECT_EQ(linkText(tree.path(rows[i].made)), u8(rows[i].args[1]));
    }
    EXPECT_TRUE(fs::is_regular_file(tree.path("raw/measurements.csv")));
    EXPECT_TRUE(fs::is_regular_file(tree.path("views/summary")));
}

// Every refusal leaves the tree as it was. A missing target wins over a taken link name;
// an existing link is kept without the overwrite rule, a file always.
TEST_F(MkSymlink, RefusalsNameTheirArgumentAndChangeNothing) {
    OutputSlots made;
    mkFileFcn(0, made.data(), 1, ArgList(charRow(u"mem://root/remote.txt")).data());
    tree.makeFile("t.txt");
    tree.makeFile("occupied.txt", "precious");
    tree.makeFile("data/x");
    tree.makeLink("t.txt", "link");
    tree.makeLink("gone", "dangling");
    tree.makeLink("t.txt", "existing");
    InFolder here(tree.root());
    const auto before = tree.snapshot();

    const fl::ustring t = tree.upath("t.txt");
    const fl::ustring l = tree.upath("l");
    const fl::ustring link = tree.upath("link");
    const fl::ustring dangling = tree.upath("dangling");
    const fl::ustring missing = tree.upath("no/such/target");
    const fl::ustring occupied = tree.upath("occupied.txt");
    const fl::ustring existingURL = fileIRI(tree.path("existing"));
    const fl::ustring https = u"https://example.org/data.csv";
    const char* kNotLocal = "QUORIN:virtualfileio:localtoremote:notLocalSymlink";
    struct Row {
        std::vector<fl::ustring> args;
        const char* id;
        std::vector<resource_core::MessageArg> expected;
    };
    const std::vector<Row> rows = {
        {{link, missing}, kTargetNotFound, {missing}},
        {{l, missing, u"ReplacementRule", u"overwrite"}, kTargetNotFound, {missing}},
        {{l, dangling}, kTargetNotFound, {dangling}},  // a dangling link is no target
        {{link, t}, kFileExists, {link}},
        {{dangling, t, u"ReplacementRule", u"preserve"}, kFileExists, {dangling}},
        {{occupied, t, u"ReplacementRule", u"preserve"}, kAlreadyExists, {occupied}},
        {{occupied, t, u"ReplacementRule", u"overwrite"}, kAlreadyExists, {occupied}},
        // The failure is located at the link; a link whose location contains the target
        // text is reported under the target.
        {{tree.upath("data/x"), u"data"}, kAlreadyExists, {u"data"}},
        {{l, u"mem://root/remote.txt"}, kNotLocal, {}},
        {{u"mem://root/remote.txt", t, u"ReplacementRule", u"overwrite"}, kNotLocal, {}},
        // A scheme that nothing serves names the target, whichever path carried it.
        {{u"https://example.org/l", t}, "QUORIN:virtualfileio:path:invalidIRI", {t}},
        {{l, https}, "QUORIN:virtualfileio:path:invalidIRI", {https}},
        // A URL link is taken in its resolved form, which a name not yet there lacks: the
        // empty IRI is an invalid name, reported under the target. An existing link named
        // by URL is no local name for the existing-link test, so the taken name is refused
        // whatever the rule says.
        {{fileIRI(tree.path("new-link")), t}, "QUORIN:io:filesystem:symlink:InvalidFilename", {t}},
        {{existingURL, t, u"ReplacementRule", u"overwrite"}, kAlreadyExists, {existingURL}},
        {{l, t, u"ReplacementRule"},
         "QUORIN:io:filesystem:common:NoValueSpecified",
         {u"ReplacementRule"}},
        {{l, t, u"Rule", u"overwrite"},
         "QUORIN:io:filesystem:core:InvalidReplacementRuleName",
         {u"Rule"}},
        {{l, t, u"ReplacementRule", u"sometimes"},
         "QUORIN:io:filesystem:core:InvalidReplacementRuleValue",
         {u"sometimes"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(u8(row.args[0] + u" -> " + row.args[1]));
        EXPECT_IDENTIFIED_ERROR(mkSymlink(texts(row.args)), row.id, row.expected);
    }
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(doubleScalar(1), doubleScalar(2))),
                            "QUORIN:string:MustBeStringScalarOrCharacterVector");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(l), missingString())),
                            "QUORIN:string:MissingNotSupported");
    EXPECT_EQ(tree.snapshot(), before);
}

TEST(CreateWindowsShortcut, AlwaysRefusesWithoutLookingAtArguments) {
    LiveArrayGuard guard;
    OutputSlots out(3);
    EXPECT_IDENTIFIED_ERROR(createWindowsShortcutFcn(0, out.data(), 0, nullptr),
                            "QUORIN:io:filesystem:symlink:NotSupportedOnPosix");
    ArgList args(doubleScalar(1), charRow(u"/tmp/x.lnk"), cellRow(), doubleScalar(3));
    EXPECT_IDENTIFIED_ERROR(createWindowsShortcutFcn(3, out.data(), args.count(), args.data()),
                            "QUORIN:io:filesystem:symlink:NotSupportedOnPosix");
    EXPECT_EQ(out[0], nullptr);
}

// Permission bits bind an unprivileged process: a folder that cannot be written refuses
// both makers, for a name in it and for a parent still to be made there; a link in a
// folder that cannot be searched is no link.
TEST_F(Makers, PermissionsAreObeyed) {
    tree.makeFile("target.txt");
    tree.makeLink("target.txt", "latest");
    tree.makeFolder("locked");
    tree.makeFolder("closed");
    tree.makeLink("../target.txt", "closed/inside");
    if (runningAsRoot()) {
        const auto ids = unprivilegedIds();
        tree.handTo(ids.uid, ids.gid);
    }
    tree.setMode("locked", 0555);
    tree.setMode("closed", 0);
    const auto before = tree.snapshot();
    const char* kDenied = "QUORIN:virtualfilesystem:permissionDenied";
    const fl::ustring file = tree.upath("locked/new.txt");
    const fl::ustring nestedFile = tree.upath("locked/sub/new.txt");
    const fl::ustring link = tree.upath("locked/link");
    const fl::ustring nestedLink = tree.upath("locked/deeper/link");
    const fl::ustring target = tree.upath("target.txt");
    const fl::ustring inside = tree.upath("closed/inside");
    const fl::ustring latest = tree.upath("latest");
    runUnprivileged([&] {
        OutputSlots out(3);
        const ArgList fileArgs(charRow(file));
        EXPECT_IDENTIFIED_ERROR(mkFileFcn(0, out.data(), 1, fileArgs.data()), kDenied, file);
        const ArgList nestedArgs(charRow(nestedFile));
        mkFileFcn(3, out.data(), 1, nestedArgs.data());
        EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
        EXPECT_EQ(stringsOf(out[2]), std::vector<StringElement>{u16(std::string(kDenied))});
        EXPECT_IDENTIFIED_ERROR(mkSymlink(texts({link, target})), kDenied, link);
        EXPECT_IDENTIFIED_ERROR(mkSymlink(texts({nestedLink, target})), kDenied, nestedLink);
        OutputSlots links(2);
        isSymlink(2, links, ArgList(cellRow(charRow(inside), charRow(latest))));
        EXPECT_EQ(logicalsOf(links[0]), (std::vector<bool>{false, true}));
    });
    EXPECT_EQ(tree.snapshot(), before);
}

}  // namespace
}  // namespace zkfs::test
