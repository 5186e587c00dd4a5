// Names that are not UTF-8 (no case table can hold them): every built-in takes them in
// as the host's escaped code units and acts on exactly those bytes, never on the
// look-alike a lossy decoder would make of them, and hands back the same bytes.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace zkfs::test {
namespace {

namespace vfs = foundation::storage::vfs;

// Bad bytes alone, in a valid sequence's place, an encoded surrogate (which strict UTF-8
// refuses byte by byte) and a Latin-1 letter.
const std::vector<std::string> kBadNames = {"\xff.txt",
                                            "a\xc3\x28"
                                            "b",
                                            "\xed\xb3\xbf", "caf\xe9"};
const std::string kLookAlike = "\xef\xbf\xbd.txt";  // U+FFFD ".txt"

// The path a "file" URL names, as bytes.
std::string pathOfURL(const std::string& url) {
    return fl::i18n::to_utf8(vfs::fromAbsoluteIRI(vfs::AbsoluteIRI(fl::i18n::to_ustring(url))));
}

class Names : public ::testing::Test {
protected:
    void SetUp() override {
        tree.makeFile(kLookAlike, "look-alike");
        for (const auto& n : kBadNames) tree.makeFile(n, "content of " + n);
    }
    // The whole path of a name in the tree, as a qfs char literal.
    [[nodiscard]] std::string q(const std::string& name) const {
        return charLiteral(tree.path(name).native());
    }
    // The first output of a statement.
    static qfs::Json first(const std::string& statement) { return call(statement)["outputs"][0]; }

    TempTree tree;
};

TEST_F(Names, ResolveAttributesAndLinkTestRoundTripTheBytes) {
    tree.makeLink(tree.path("\xff.txt").native(), "\xfe-link");
    for (const auto& n : kBadNames) {
        SCOPED_TRACE(n);
        EXPECT_EQ(first("r = resolvePathFcn(" + q(n) + ")")["value"][0]["ResolvedPath"]["value"][0],
                  tree.path(n).native());
        EXPECT_EQ(
            first("r = resolvePathFcnWithAttributes(" + q(n) + ")")["value"][0]["Size"]["value"][0],
            11 + n.size());
    }
    const qfs::Json link = call("[tf, t] = isSymlinkFcn(" + q("\xfe-link") + ")")["outputs"];
    EXPECT_EQ(link[0]["value"][0], true);
    // The target comes back as a "file" URL naming the bad bytes, not the look-alike.
    EXPECT_EQ(pathOfURL(link[1]["value"][0]), tree.path("\xff.txt").native());
}

TEST_F(Names, PermissionsAreReadAndChangedOnExactlyThoseBytes) {
    tree.setMode(kLookAlike, 0);
    for (const auto& n : kBadNames) {
        SCOPED_TRACE(n);
        tree.setMode(n, 0640);
        EXPECT_EQ(first("p = getPerms_impl(" + q(n) +
                        ", 'File', 'GroupRead')")["value"][0]["GroupRead"]["value"][0],
                  true);
        EXPECT_TRUE(failuresIn(call("r = modifyPerms_impl(" + q(n) +
                                    ", 'File', struct('OtherExecute', true), false, 'all')"))
                        .empty());
        EXPECT_EQ(tree.mode(n), 0641U);
    }
    // A walk over a tree holding them reaches each by its own bytes.
    EXPECT_TRUE(failuresIn(call("r = modifyPerms_impl(" + q("") +
                                ", 'Folder', struct('GroupRead', false), false, 'files')"))
                    .empty());
    for (const auto& n : kBadNames) EXPECT_EQ(tree.mode(n), 0601U) << n;
    EXPECT_EQ(tree.mode(kLookAlike), 0U);
    // A failure names the path by its bytes.
    tree.makeLink("\xfb", "\xfc-dir/\xfa-link");
    EXPECT_EQ(failuresIn(call("r = modifyPerms_impl(" + q("\xfc-dir") +
                              ", 'Folder', struct('Writable', false), false, 'symboliclinks')"))
                  .at(0)
                  .name,
              tree.path("\xfc-dir/\xfa-link").native());
}

TEST_F(Names, MakersCreateTheNamesTheyAreGiven) {
    for (const std::string n : {"new-\xff", "new\xc3\x28/x-\xfe.txt", "new-\xed\xa0\x80"}) {
        SCOPED_TRACE(n);
        EXPECT_EQ(first("[ok, msg, id] = mkFileFcn(" + q(n) + ")")["value"][0], true);
        EXPECT_TRUE(std::filesystem::is_regular_file(tree.path(n)));
        EXPECT_EQ(call("mkFileFcn(" + q(n) + ")")["error"]["arguments"][0], tree.path(n).native());
    }
    // A link named in bytes to a target named in bytes, stored exactly as given.
    call("mkSymlinkFcn(" + q("link-\xff") + ", " + q("\xff.txt") + ")");
    EXPECT_EQ(std::filesystem::read_symlink(tree.path("link-\xff")).native(),
              tree.path("\xff.txt").native());
    // A target missing under its bytes is not found, though its look-alike exists.
    tree.makeFile("\xef\xbf\xbd-t");
    const qfs::Json error = call("mkSymlinkFcn(" + q("x") + ", " + q("\xfd-t") + ")")["error"];
    EXPECT_EQ(error["identifier"], "QUORIN:io:filesystem:symlink:TargetNotFound");
    EXPECT_EQ(error["arguments"][0], tree.path("\xfd-t").native());
    EXPECT_FALSE(std::filesystem::is_symlink(tree.path("x")));
}

TEST_F(Names, FileURLsCarryTheBytesAndComeBack) {
    std::string cell = "{";
    for (const auto& n : kBadNames) cell += q(n) + (&n == &kBadNames.back() ? "}" : ", ");
    const qfs::Json urls = first("u = createFileURL(" + cell + ")")["value"];
    ASSERT_EQ(urls.size(), kBadNames.size());
    for (std::size_t i = 0; i < urls.size(); ++i) {
        SCOPED_TRACE(kBadNames[i]);
        for (const char c : urls[i].get<std::string>()) EXPECT_GE(c, 0) << "raw byte in the URL";
        EXPECT_EQ(pathOfURL(urls[i]), tree.path(kBadNames[i]).native());
    }
}

}  // namespace
}  // namespace zkfs::test
