// Names that are not UTF-8 (no case table can hold them): every built-in takes them in
// as the host's escaped code units and acts on exactly those bytes, never on the
// look-alike a lossy decoder would make of them, and hands back the same bytes.
#include "FaultsSupport.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/GatewayCall.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace zkfs::test::faults {
namespace {

namespace vfs = foundation::storage::vfs;
namespace q = quorin::io::filesystem::quorin;

// Bad bytes alone, in a valid sequence's place, an encoded surrogate (which strict UTF-8
// refuses byte by byte) and a Latin-1 letter.
const std::vector<std::string> kBadNames = {"\xff.txt",
                                            "a\xc3\x28"
                                            "b",
                                            "\xed\xb3\xbf", "caf\xe9"};
const std::string kLookAlike = "\xef\xbf\xbd.txt";  // U+FFFD ".txt"

class Names : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        tree.makeFile(kLookAlike, "look-alike");
        for (const auto& n : kBadNames) tree.makeFile(n, "content of " + n);
    }
    [[nodiscard]] std::string raw(const std::string& name) const {
        return tree.path(name).native();
    }
    [[nodiscard]] fl::ustring host(const std::string& name) const { return hostText(raw(name)); }
    // The text of a 1x1 string, as bytes.
    static std::string bytesIn(const vqArray* s) { return bytesOf(stringsOf(s).at(0).value()); }

    TempTree tree;
};

TEST_F(Names, ResolveAttributesAndLinkTestRoundTripTheBytes) {
    tree.makeLink(raw("\xff.txt"), "\xfe-link");
    for (const auto& n : kBadNames) {
        SCOPED_TRACE(n);
        OutputSlots r;
        call<&q::resolvePathFcn>(1, r, ArgList(stringScalar(host(n))));
        EXPECT_EQ(bytesIn(vqGetField(r[0], 0, "ResolvedPath")), raw(n));
        OutputSlots a;
        call<&q::resolvePathFcnWithAttributes>(1, a, ArgList(stringScalar(host(n))));
        EXPECT_EQ(doublesOf(vqGetField(a[0], 0, "Size")),
                  std::vector<double>{static_cast<double>(11 + n.size())});
    }
    OutputSlots link(2);
    call<&isSymlinkFcn>(2, link, ArgList(charRow(host("\xfe-link"))));
    EXPECT_EQ(logicalsOf(link[0]), std::vector<bool>{true});
    // The target comes back as a "file" IRI naming the bad bytes, not the look-alike.
    EXPECT_EQ(bytesOf(vfs::fromAbsoluteIRI(vfs::AbsoluteIRI(stringsOf(link[1]).at(0).value()))),
              raw("\xff.txt"));
}

TEST_F(Names, PermissionsAreReadAndChangedOnExactlyThoseBytes) {
    tree.setMode(kLookAlike, 0);
    for (const auto& n : kBadNames) {
        SCOPED_TRACE(n);
        tree.setMode(n, 0640);
        OutputSlots p;
        call<&getPerms_impl>(
            1, p, ArgList(stringScalar(host(n)), charRow(u"File"), charRow(u"GroupRead")));
        EXPECT_EQ(logicalsOf(vqGetField(p[0], 0, "GroupRead")), std::vector<bool>{true});
        EXPECT_TRUE(modifyPerms(1, host(n), u"File", {{"OtherExecute", true}}, u"all").empty());
        EXPECT_EQ(tree.mode(n), 0641U);
    }
    // A walk over a tree holding them reaches each by its own bytes.
    EXPECT_TRUE(
        modifyPerms(1, tree.upath(""), u"Folder", {{"GroupRead", false}}, u"files").empty());
    for (const auto& n : kBadNames) EXPECT_EQ(tree.mode(n), 0601U) << n;
    EXPECT_EQ(tree.mode(kLookAlike), 0U);
    // A failure names the path in the host's escaped form, which maps back to the bytes.
    tree.makeLink("\xfb", "\xfc-dir/\xfa-link");
    const auto failures =
        modifyPerms(1, host("\xfc-dir"), u"Folder", {{"Writable", false}}, u"symboliclinks");
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(bytesOf(failures[0].name), raw("\xfc-dir/\xfa-link"));
}

TEST_F(Names, MakersCreateTheNamesTheyAreGiven) {
    for (const std::string n : {"new-\xff", "new\xc3\x28/x-\xfe.txt", "new-\xed\xa0\x80"}) {
        SCOPED_TRACE(n);
        OutputSlots out(3);
        call<&mkFileFcn>(3, out, ArgList(stringScalar(host(n))));
        EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
        EXPECT_TRUE(std::filesystem::is_regular_file(tree.path(n)));
        EXPECT_IDENTIFIED_ERROR(call<&mkFileFcn>(0, out, ArgList(charRow(host(n)))),
                                "QUORIN:virtualfilesystem:resourceAlreadyExists", host(n));
    }
    // A link named in bytes to a target named in bytes, stored exactly as given.
    OutputSlots none;
    call<&mkSymlinkFcn>(0, none, ArgList(charRow(host("link-\xff")), charRow(host("\xff.txt"))));
    EXPECT_EQ(std::filesystem::read_symlink(tree.path("link-\xff")).native(), raw("\xff.txt"));
    // A target missing under its bytes is not found, though its look-alike exists.
    tree.makeFile("\xef\xbf\xbd-t");
    EXPECT_IDENTIFIED_ERROR(
        call<&mkSymlinkFcn>(0, none, ArgList(charRow(host("x")), charRow(host("\xfd-t")))),
        "QUORIN:io:filesystem:symlink:TargetNotFound", host("\xfd-t"));
    EXPECT_FALSE(std::filesystem::is_symlink(tree.path("x")));
}

TEST_F(Names, FileURLsCarryTheBytesAndComeBack) {
    std::vector<StringElement> given;
    for (const auto& n : kBadNames) given.emplace_back(host(n));
    const auto urls = stringsFrom(
        call<&q::createFileURL>, ArgList(stringArray({1, given.size()}, given)), {1, given.size()});
    ASSERT_EQ(urls.size(), kBadNames.size());
    for (std::size_t i = 0; i < urls.size(); ++i) {
        SCOPED_TRACE(kBadNames[i]);
        for (const char16_t c : urls[i].value()) EXPECT_LT(c, 0x80) << "raw code unit in the URL";
        EXPECT_EQ(bytesOf(vfs::fromAbsoluteIRI(vfs::AbsoluteIRI(urls[i].value()))),
                  raw(kBadNames[i]));
    }
}

}  // namespace
}  // namespace zkfs::test::faults
