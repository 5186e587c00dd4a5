// mkSymlinkFcn and createWindowsShortcutFcn on real trees: targets checked before links,
// the replace rule for existing links only, relative targets stored as typed, parents
// made, schemes refused, and the argument each translated error names.
#include "Helpers.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "foundation/storage/provider/MemProvider.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace zkfs::test::create {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFileExists = "QUORIN:io:filesystem:symlink:FileExists";
constexpr const char* kTargetNotFound = "QUORIN:io:filesystem:symlink:TargetNotFound";

void mkSymlink(const ArgList& args, int outCount = 0) {
    OutputSlots out;
    mkSymlinkFcn(outCount, out.data(), args.count(), args.data());
    EXPECT_EQ(out[0], nullptr) << "mkSymlinkFcn returns nothing";
}

class MkSymlink : public LiveArrayTest {
protected:
    TempTree tree;
};

// Targets are checked from the current folder and stored as typed, so a relative one is
// read from the link's own folder; a relative link is made in the current folder; missing
// parents are made.
TEST_F(MkSymlink, MakesLinksStoringTheTargetAsTyped) {
    tree.makeFile("data/raw/measurements.csv", "a,b\n");
    tree.makeFile("data/summary.parquet", "PAR1");
    tree.makeFolder("views");
    InFolder here(tree.path("views"));
    struct Row {
        fl::ustring link;
        fl::ustring target;
        const char* made;
    };
    const std::vector<Row> rows = {
        {tree.upath("latest.csv"), tree.upath("data/raw/measurements.csv"), "latest.csv"},
        {tree.upath("raw"), tree.upath("data/raw"), "raw"},
        {u"short", tree.upath("data/summary.parquet"), "views/short"},
        {tree.upath("shortcuts/2024/raw-data"), tree.upath("data/raw"), "shortcuts/2024/raw-data"},
        {tree.upath("views/summary"), u"../data/summary.parquet", "views/summary"},
        {tree.upath("links/data"), fileIRI(tree.path("data/summary.parquet")), "links/data"},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Row& row = rows[i];
        SCOPED_TRACE(row.made);
        // Both text forms are read.
        mkSymlink(i % 2 == 0 ? ArgList(charRow(row.link), charRow(row.target))
                             : ArgList(stringScalar(row.link), stringScalar(row.target)));
        EXPECT_EQ(linkText(tree.path(row.made)), u8(row.target));
    }
    EXPECT_TRUE(fs::is_regular_file(tree.path("raw/measurements.csv")));
    EXPECT_TRUE(fs::is_regular_file(tree.path("views/summary")));
}

TEST_F(MkSymlink, MissingTargetWinsOverAnExistingLink) {
    tree.makeFile("a.txt");
    tree.makeLink("a.txt", "link");
    const auto before = tree.snapshot();
    const fl::ustring missing = tree.upath("no/such/target");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(tree.upath("link")), charRow(missing))),
                            kTargetNotFound, missing);
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(tree.upath("fresh")), charRow(missing),
                                              charRow(u"ReplacementRule"), charRow(u"overwrite"))),
                            kTargetNotFound, missing);
    // A dangling link is no target either.
    tree.makeLink("gone", "dangling");
    const fl::ustring dangling = tree.upath("dangling");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(tree.upath("fresh")), charRow(dangling))),
                            kTargetNotFound, dangling);
    EXPECT_FALSE(isLinkAt(tree.path("fresh")));
    EXPECT_EQ(linkText(tree.path("link")), "a.txt");
    EXPECT_EQ(before.size() + 1, tree.snapshot().size());
}

// A link at the link path, dangling or not, is kept unless the rule says overwrite.
TEST_F(MkSymlink, ExistingLinkIsKeptUnlessOverwritten) {
    tree.makeFile("old.txt");
    tree.makeFile("new.txt");
    tree.makeLink("old.txt", "current");
    tree.makeLink("vanished.txt", "stale");
    const fl::ustring target = tree.upath("new.txt");
    for (const auto& [name, stored] :
         {std::pair{"current", "old.txt"}, {"stale", "vanished.txt"}}) {
        SCOPED_TRACE(name);
        const fl::ustring link = tree.upath(name);
        EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(link), charRow(target))), kFileExists,
                                link);
        EXPECT_IDENTIFIED_ERROR(
            mkSymlink(ArgList(charRow(link), charRow(target), charRow(u"ReplacementRule"),
                              charRow(u"preserve"))),
            kFileExists, link);
        EXPECT_EQ(linkText(tree.path(name)), stored);
        // Unambiguous prefixes are completed before the value is compared.
        mkSymlink(
            ArgList(charRow(link), charRow(target), stringScalar(u"repl"), stringScalar(u"OVER")));
        EXPECT_EQ(linkText(tree.path(name)), tree.path("new.txt").native());
    }
}

TEST_F(MkSymlink, RegularFileAtTheLinkPathIsNeverReplaced) {
    tree.makeFile("target.txt");
    tree.makeFile("occupied.txt", "precious");
    const fl::ustring link = tree.upath("occupied.txt");
    const auto before = tree.snapshot();
    for (const char16_t* rule : {u"preserve", u"overwrite"}) {
        EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(link), charRow(tree.upath("target.txt")),
                                                  charRow(u"ReplacementRule"), charRow(rule))),
                                "QUORIN:virtualfilesystem:resourceAlreadyExists", link);
    }
    EXPECT_EQ(tree.snapshot(), before);
}

TEST_F(MkSymlink, StorageErrorNamesTheTargetWhenItsLocationHoldsIt) {
    // The failure is located at the link; a link whose location contains the target
    // text is reported under the target.
    tree.makeFolder("data");
    tree.makeFile("data/x");
    InFolder here(tree.root());
    const fl::ustring link = tree.upath("data/x");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(link), charRow(u"data"))),
                            "QUORIN:virtualfilesystem:resourceAlreadyExists", u"data");
}

TEST_F(MkSymlink, OtherSchemesAreRefused) {
    foundation::storage::provider::resetMemStorage();
    tree.makeFile("local.txt");
    OutputSlots made;
    mkFileFcn(0, made.data(), 1, ArgList(charRow(u"mem://root/remote.txt")).data());

    EXPECT_IDENTIFIED_ERROR(
        mkSymlink(ArgList(charRow(tree.upath("l1")), charRow(u"mem://root/remote.txt"))),
        "QUORIN:virtualfileio:localtoremote:notLocalSymlink");
    EXPECT_IDENTIFIED_ERROR(
        mkSymlink(ArgList(charRow(u"mem://root/remote.txt"), charRow(tree.upath("local.txt")),
                          charRow(u"ReplacementRule"), charRow(u"overwrite"))),
        "QUORIN:virtualfileio:localtoremote:notLocalSymlink");
    // A scheme that nothing serves names the target, whichever path carried it.
    const fl::ustring target = tree.upath("local.txt");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(u"https://example.org/l"), charRow(target))),
                            "QUORIN:virtualfileio:path:invalidIRI", target);
    EXPECT_IDENTIFIED_ERROR(
        mkSymlink(ArgList(charRow(tree.upath("l2")), charRow(u"https://example.org/data.csv"))),
        "QUORIN:virtualfileio:path:invalidIRI", u"https://example.org/data.csv");
    EXPECT_FALSE(isLinkAt(tree.path("l1")));
    EXPECT_FALSE(isLinkAt(tree.path("l2")));
    foundation::storage::provider::resetMemStorage();
}

TEST_F(MkSymlink, LinkNamedByAURLMustAlreadyResolve) {
    // A URL link is taken in its resolved form, which a name not yet there lacks: the
    // empty IRI is refused as an invalid name, reported under the target.
    tree.makeFile("data.csv");
    const fl::ustring target = tree.upath("data.csv");
    EXPECT_IDENTIFIED_ERROR(
        mkSymlink(ArgList(charRow(fileIRI(tree.path("new-link"))), charRow(target))),
        "QUORIN:io:filesystem:symlink:InvalidFilename", target);
    EXPECT_FALSE(isLinkAt(tree.path("new-link")));

    // An existing link named by URL is no local name for the existing-link test, so the
    // system refuses the taken name whatever the rule says.
    tree.makeLink("data.csv", "existing");
    const fl::ustring link = fileIRI(tree.path("existing"));
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(link), charRow(target),
                                              charRow(u"ReplacementRule"), charRow(u"overwrite"))),
                            "QUORIN:virtualfilesystem:resourceAlreadyExists", link);
    EXPECT_EQ(linkText(tree.path("existing")), "data.csv");
}

TEST_F(MkSymlink, ArgumentErrorsNameTheirArgument) {
    tree.makeFile("t.txt");
    EXPECT_IDENTIFIED_ERROR(
        mkSymlink(ArgList(charRow(tree.upath("l")), charRow(tree.upath("t.txt")),
                          stringScalar(u"ReplacementRule"))),
        "QUORIN:io:filesystem:common:NoValueSpecified", u"ReplacementRule");
    EXPECT_IDENTIFIED_ERROR(
        mkSymlink(ArgList(charRow(tree.upath("l")), charRow(tree.upath("t.txt")), charRow(u"Rule"),
                          charRow(u"overwrite"))),
        "QUORIN:io:filesystem:core:InvalidReplacementRuleName", u"Rule");
    EXPECT_IDENTIFIED_ERROR(
        mkSymlink(ArgList(charRow(tree.upath("l")), charRow(tree.upath("t.txt")),
                          charRow(u"ReplacementRule"), charRow(u"sometimes"))),
        "QUORIN:io:filesystem:core:InvalidReplacementRuleValue", u"sometimes");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(doubleScalar(1), doubleScalar(2))),
                            "QUORIN:string:MustBeStringScalarOrCharacterVector");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(tree.upath("l")), missingString())),
                            "QUORIN:string:MissingNotSupported");
    EXPECT_FALSE(isLinkAt(tree.path("l")));
}

TEST_F(MkSymlink, ReadOnlyFolderIsPermissionDenied) {
    tree.makeFile("target.txt");
    tree.makeFolder("locked");
    if (runningAsRoot()) {
        const auto ids = unprivilegedIds();
        tree.handTo(ids.uid, ids.gid);
    }
    tree.setMode("locked", 0555);
    const fl::ustring link = tree.upath("locked/link");
    const fl::ustring nested = tree.upath("locked/deeper/link");
    const fl::ustring target = tree.upath("target.txt");
    runUnprivileged([&] {
        EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(link), charRow(target))),
                                "QUORIN:virtualfilesystem:permissionDenied", link);
        EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(nested), charRow(target))),
                                "QUORIN:virtualfilesystem:permissionDenied", nested);
    });
    EXPECT_FALSE(isLinkAt(tree.path("locked/link")));
    EXPECT_FALSE(fs::exists(tree.path("locked/deeper")));
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

}  // namespace
}  // namespace zkfs::test::create
