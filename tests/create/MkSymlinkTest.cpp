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

TEST_F(MkSymlink, LinksToAFileAndAFolder) {
    tree.makeFile("data/raw/measurements.csv", "a,b\n");
    mkSymlink(ArgList(charRow(tree.upath("latest.csv")),
                      charRow(tree.upath("data/raw/measurements.csv"))));
    EXPECT_EQ(linkText(tree.path("latest.csv")), tree.path("data/raw/measurements.csv").native());

    mkSymlink(ArgList(stringScalar(tree.upath("raw")), stringScalar(tree.upath("data/raw"))));
    EXPECT_TRUE(fs::is_regular_file(tree.path("raw/measurements.csv")));
}

TEST_F(MkSymlink, RelativeTargetIsStoredAsTyped) {
    tree.makeFile("data/summary.parquet", "PAR1");
    tree.makeFolder("views");
    // The target is checked from the current folder and stored unchanged, so the link
    // reads it from its own folder.
    InFolder here(tree.path("views"));
    mkSymlink(ArgList(charRow(tree.upath("views/summary")), charRow(u"../data/summary.parquet")));
    EXPECT_EQ(linkText(tree.path("views/summary")), "../data/summary.parquet");
    EXPECT_TRUE(fs::is_regular_file(tree.path("views/summary")));
}

TEST_F(MkSymlink, RelativeLinkIsMadeInTheCurrentFolder) {
    tree.makeFile("target.txt");
    InFolder here(tree.root());
    mkSymlink(ArgList(charRow(u"short"), charRow(tree.upath("target.txt"))));
    EXPECT_EQ(linkText(tree.path("short")), tree.path("target.txt").native());
}

TEST_F(MkSymlink, MissingParentsAreCreated) {
    tree.makeFolder("data/raw");
    mkSymlink(
        ArgList(charRow(tree.upath("shortcuts/2024/raw-data")), charRow(tree.upath("data/raw"))));
    EXPECT_TRUE(fs::is_directory(tree.path("shortcuts/2024")));
    EXPECT_EQ(linkText(tree.path("shortcuts/2024/raw-data")), tree.path("data/raw").native());
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

TEST_F(MkSymlink, ExistingLinkIsKeptUnlessOverwritten) {
    tree.makeFile("old.txt");
    tree.makeFile("new.txt");
    tree.makeLink("old.txt", "current");
    const fl::ustring link = tree.upath("current");
    const fl::ustring target = tree.upath("new.txt");

    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(link), charRow(target))), kFileExists, link);
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(link), charRow(target),
                                              charRow(u"ReplacementRule"), charRow(u"preserve"))),
                            kFileExists, link);
    EXPECT_EQ(linkText(tree.path("current")), "old.txt");

    // Unambiguous prefixes are completed before the value is compared.
    mkSymlink(
        ArgList(charRow(link), charRow(target), stringScalar(u"repl"), stringScalar(u"OVER")));
    EXPECT_EQ(linkText(tree.path("current")), tree.path("new.txt").native());
}

TEST_F(MkSymlink, DanglingLinkAtTheLinkPathCountsAsALink) {
    tree.makeFile("target.txt");
    tree.makeLink("vanished.txt", "stale");
    const fl::ustring link = tree.upath("stale");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(link), charRow(tree.upath("target.txt")))),
                            kFileExists, link);
    mkSymlink(ArgList(charRow(link), charRow(tree.upath("target.txt")), charRow(u"ReplacementRule"),
                      charRow(u"overwrite")));
    EXPECT_EQ(linkText(tree.path("stale")), tree.path("target.txt").native());
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

TEST_F(MkSymlink, FileURLTargetIsStoredAsTyped) {
    tree.makeFile("data.csv");
    const fl::ustring target = fileIRI(tree.path("data.csv"));
    mkSymlink(ArgList(charRow(tree.upath("links/data")), charRow(target)));
    EXPECT_EQ(linkText(tree.path("links/data")), u8(target));
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

TEST_F(MkSymlink, NameWithoutValueIsNamed) {
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
    EXPECT_FALSE(isLinkAt(tree.path("l")));
}

TEST_F(MkSymlink, CountsAndTextArguments) {
    OutputSlots out;
    ArgList bad(doubleScalar(1), doubleScalar(2));
    // Any result asked for fails before the arguments are looked at.
    EXPECT_IDENTIFIED_ERROR(mkSymlinkFcn(1, out.data(), bad.count(), bad.data()),
                            "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(doubleScalar(1))), "QUORIN:NotEnoughInputs");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(doubleScalar(1), doubleScalar(1), doubleScalar(1),
                                              doubleScalar(1), doubleScalar(1))),
                            "QUORIN:TooManyInputs");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(bad), "QUORIN:string:MustBeStringScalarOrCharacterVector");
    EXPECT_IDENTIFIED_ERROR(mkSymlink(ArgList(charRow(tree.upath("l")), missingString())),
                            "QUORIN:string:MissingNotSupported");
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
