// Names that are not UTF-8, made with the POSIX calls: every built-in takes them in as
// the host's escaped code units and acts on exactly those bytes, never on a look-alike
// whose name is the valid text the bad bytes might be mistaken for.
#include "FaultsSupport.hpp"
#include "zkfs/test/GatewayCall.hpp"
#include "PermsTestSupport.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <unistd.h>

namespace zkfs::test::faults {
namespace {

namespace vfs = foundation::storage::vfs;

// Bad bytes alone, in a valid sequence's place, and an encoded surrogate (which strict
// UTF-8 refuses byte by byte); the look-alike is what a lossy decoder would make of them.
const std::vector<std::string> kBadNames = {"\xff.txt",
                                            "a\xc3\x28"
                                            "b",
                                            "\xed\xb3\xbf", "caf\xe9"};
const std::string kLookAlike = "\xef\xbf\xbd.txt";  // U+FFFD ".txt"

class Names : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        root = tree.root().native();
        makeRawFile(root + "/" + kLookAlike, "look-alike");
        for (const auto& n : kBadNames) makeRawFile(root + "/" + n, "content of " + n);
    }
    [[nodiscard]] std::string raw(const std::string& name) const { return root + "/" + name; }
    [[nodiscard]] fl::ustring host(const std::string& name) const { return hostText(raw(name)); }

    TempTree tree;
    std::string root;
};

TEST_F(Names, ResolveAttributesAndLinkTestRoundTripTheBytes) {
    ASSERT_EQ(::symlink((root + "/\xff.txt").c_str(), raw("\xfe-link").c_str()), 0);
    for (const auto& n : kBadNames) {
        SCOPED_TRACE(n);
        const Resolved r = resolve(host(n));
        EXPECT_EQ(r.type, u"File");
        EXPECT_EQ(bytesOf(r.path), raw(n));
        const Resolved a = resolveWithAttributes(host(n));
        EXPECT_EQ(a.size, static_cast<double>(("content of " + n).size()));
        EXPECT_TRUE(a.readable);
        EXPECT_FALSE(isSymlink(host(n)).isLink);
    }
    const LinkAnswer link = isSymlink(host("\xfe-link"));
    EXPECT_TRUE(link.isLink);
    // The target comes back as a "file" IRI naming the bad bytes, not the look-alike.
    EXPECT_EQ(bytesOf(vfs::fromAbsoluteIRI(vfs::AbsoluteIRI(link.target))), raw("\xff.txt"));
    EXPECT_EQ(resolve(host("\xfe-link")).type, u"SymbolicLink");
}

TEST_F(Names, PermissionsAreReadAndChangedOnExactlyThoseBytes) {
    for (const auto& n : kBadNames) {
        SCOPED_TRACE(n);
        ASSERT_EQ(::chmod(raw(n).c_str(), 0640), 0);
        const auto s = perms::getPerms(ArgList(stringScalar(host(n)), charRow(u"File")));
        EXPECT_EQ(perms::logicalFields(s.get()), perms::kMode0640Fields);
        const auto out = perms::modifyPermsOut(host(n), u"File",
                                               perms::request({{"OtherExecute", true}}), u"all");
        EXPECT_TRUE(perms::failureRows(out.get()).empty());
        EXPECT_EQ(rawMode(raw(n)), 0641U);
    }
    EXPECT_EQ(rawMode(raw(kLookAlike)), 0644U);

    // A walk over a tree holding them reaches each by its own bytes.
    const auto out = perms::modifyPermsOut(tree.upath(""), u"Folder",
                                           perms::request({{"Writable", false}}), u"files");
    EXPECT_TRUE(perms::failureRows(out.get()).empty());
    for (const auto& n : kBadNames) EXPECT_EQ(rawMode(raw(n)), 0441U) << n;
    EXPECT_EQ(rawMode(raw(kLookAlike)), 0444U);

    // A failure names the path in the host's escaped form, which maps back to the bytes.
    ASSERT_EQ(::mkdir(raw("\xfc-dir").c_str(), 0755), 0);
    makeRawFile(raw("\xfc-dir/\xfb"));
    ASSERT_EQ(::symlink("\xfb", raw("\xfc-dir/\xfa-link").c_str()), 0);
    const auto linkOut = perms::modifyPermsOut(
        host("\xfc-dir"), u"Folder", perms::request({{"Writable", false}}), u"symboliclinks");
    const auto rows = perms::failureRows(linkOut.get());
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(bytesOf(rows[0].name), raw("\xfc-dir/\xfa-link"));
}

TEST_F(Names, MakersCreateTheNamesTheyAreGiven) {
    const std::vector<std::string> made = {"new-\xff", "new\xc3\x28/x-\xfe.txt",
                                           "new-\xed\xa0\x80"};
    for (const auto& n : made) {
        SCOPED_TRACE(n);
        OutputSlots out(3);
        call<&mkFileFcn>(3, out, ArgList(stringScalar(host(n))));
        EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
        EXPECT_TRUE(rawExists(raw(n)));
        EXPECT_EQ(rawMode(raw(n)) & 0600U, 0600U);
        // Made once; the second time it is there.
        EXPECT_IDENTIFIED_ERROR(call<&mkFileFcn>(0, out, ArgList(charRow(host(n)))),
                                "QUORIN:virtualfilesystem:resourceAlreadyExists", host(n));
    }

    // A link named in bytes to a target named in bytes, stored exactly as typed.
    OutputSlots none;
    call<&mkSymlinkFcn>(0, none, ArgList(charRow(host("link-\xff")), charRow(host("\xff.txt"))));
    char stored[4096] = {};
    const ssize_t n = ::readlink(raw("link-\xff").c_str(), stored, sizeof stored - 1);
    ASSERT_GT(n, 0);
    EXPECT_EQ(std::string(stored, static_cast<std::size_t>(n)), raw("\xff.txt"));
    // A relative target in bytes too, made in a missing folder.
    call<&mkSymlinkFcn>(0, none, ArgList(charRow(host("sub\xfe/rel")), charRow(u"..")));
    EXPECT_TRUE(rawExists(raw("sub\xfe/rel")));
    // A target that does not exist under its bytes is not found, even though the
    // look-alike does exist.
    EXPECT_IDENTIFIED_ERROR(
        call<&mkSymlinkFcn>(0, none, ArgList(charRow(host("x")), charRow(host("\xfd.txt")))),
        "QUORIN:io:filesystem:symlink:TargetNotFound", host("\xfd.txt"));
    EXPECT_FALSE(rawExists(raw("x")));
}

TEST_F(Names, FileURLsCarryTheBytesAndComeBack) {
    std::vector<StringElement> given;
    for (const auto& n : kBadNames) given.emplace_back(host(n));
    const auto urls =
        stringsFrom(call<&quorin::io::filesystem::quorin::createFileURL>,
                    ArgList(stringArray({1, given.size()}, given)), {1, given.size()});
    ASSERT_EQ(urls.size(), kBadNames.size());
    for (std::size_t i = 0; i < urls.size(); ++i) {
        SCOPED_TRACE(kBadNames[i]);
        ASSERT_TRUE(urls[i].has_value());
        // Pure ASCII: the bad bytes are percent-encoded one by one.
        for (const char16_t c : *urls[i]) EXPECT_LT(c, 0x80) << "raw code unit in the URL";
        EXPECT_EQ(bytesOf(vfs::fromAbsoluteIRI(vfs::AbsoluteIRI(*urls[i]))), raw(kBadNames[i]));
    }
}

}  // namespace
}  // namespace zkfs::test::faults
