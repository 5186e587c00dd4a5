// The path layer (fl::filesystem) and the path/IRI helpers of PathManagement.
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "Hexfarrow/PathManagement/PathManagement.hpp"
#include "fl/filesystem/filesystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = fl::filesystem;
using fl::i18n::to_utf8;
using S = fs::file_status;

using zkfs::test::InFolder;

TEST(MakeNativeForm, CleansWithoutTouchingDotDot) {
    const std::vector<std::pair<const char16_t*, const char16_t*>> rows = {
        {u"/", u"/"},
        {u"//", u"/"},
        {u"/.", u"/"},
        {u"/./", u"/"},
        {u"/a//b/./c/", u"/a/b/c"},
        {u"/a/../b", u"/a/../b"},
        {u"/..", u"/.."},
        {u"/a/.../b", u"/a/.../b"},
        {u"/a/.b/c.", u"/a/.b/c."},
        {u"/t\u00e4st/\U0001F600//x", u"/t\u00e4st/\U0001F600/x"},
        {u"/bad\xDCFF/./x", u"/bad\xDCFF/x"},
    };
    for (const auto& [input, expected] : rows) {
        SCOPED_TRACE(to_utf8(input));
        EXPECT_EQ(fs::detail::make_native_form(input, true), expected);
        EXPECT_EQ(fs::detail::make_native_form(input, false), expected);
    }
    // Relative paths are taken from the current folder, or stay relative.
    zkfs::test::TempTree tree;
    InFolder here(tree.root());
    const fl::ustring root = tree.upath("");
    EXPECT_EQ(fs::detail::make_native_form(u"a/./b//c", true), root + u"/a/b/c");
    EXPECT_EQ(fs::detail::make_native_form(u"../x", true), root + u"/../x");
    EXPECT_EQ(fs::detail::make_native_form(u".", true), root);
    EXPECT_EQ(fs::detail::make_native_form(u"", true), root);
    EXPECT_EQ(fs::detail::make_native_form(u"a/./b//c", false), u"a/b/c");
    EXPECT_EQ(fs::detail::make_native_form(u"./", false), u".");
    EXPECT_EQ(fs::detail::make_native_form(u"", false), u"");
    EXPECT_EQ(fs::absolute(u"rel/./x"), root + u"/rel/./x");
    EXPECT_EQ(fs::absolute(u"/abs/../x"), u"/abs/../x");
    EXPECT_EQ(fs::current_path(), root);
}

class PathLayer : public ::testing::Test {
protected:
    void SetUp() override {
        tree_.makeFile("f", "12345");
        tree_.makeFolder("d");
        tree_.makeLink("f", "link-to-file");
        tree_.makeLink("d", "link-to-folder");
        tree_.makeLink("missing", "dangling");
        tree_.makeLink("loop", "loop");
    }
    fl::ustring p(const std::string& relative) const { return tree_.upath(relative); }
    zkfs::test::TempTree tree_;
};

TEST_F(PathLayer, StatusFollowsLinksAndSymlinkStatusReadsTheName) {
    struct Row {
        const char* name;
        unsigned followed;  // not_found: status throws
        unsigned itself;
    };
    const std::vector<Row> rows = {
        {"f", S::regular_file, S::regular_file},
        {"d", S::directory_file, S::directory_file},
        {"link-to-file", S::regular_file, S::symlink_file},
        {"link-to-folder", S::directory_file, S::symlink_file},
        {"dangling", S::not_found, S::symlink_file},
        {"none", S::not_found, S::not_found},  // nothing there is an answer, not an error
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.followed != S::not_found) {
            EXPECT_EQ(fs::status(p(row.name)).type() & S::file_type_mask, row.followed);
        }
        EXPECT_EQ(fs::symlink_status(p(row.name)).type() & S::file_type_mask, row.itself);
        EXPECT_EQ(fs::symlink_status(p(row.name)).exists(), row.itself != S::not_found);
    }
    EXPECT_EQ(fs::status(p("link-to-file")).size(), 5U);

    EXPECT_IDENTIFIED_ERROR((void)fs::status(p("none")), "QUORIN:filesystem:pathNotFound",
                            p("none"));
    // A name below a file: nothing has it.
    EXPECT_THROW((void)fs::status(p("f/below")), fs::PathNotFound);
    // A link that cannot be followed exists: ENOENT as a system error, not "not found".
    for (const char* link : {"dangling", "loop"}) {
        SCOPED_TRACE(link);
        EXPECT_IDENTIFIED_ERROR((void)fs::status(p(link)), "QUORIN:filesystem:systemError", p(link),
                                std::string("No such file or directory"), std::int64_t{ENOENT});
        EXPECT_THROW((void)fs::status(p(link)), fs::SystemError);
    }
}

TEST_F(PathLayer, AccessDeniedWithoutPrivileges) {
    tree_.makeFile("closed/inner");
    const auto ids = zkfs::test::unprivilegedIds();
    tree_.handTo(ids.uid, ids.gid);
    tree_.setMode("", 0755);
    tree_.setMode("closed", 0000);
    const fl::ustring inner = p("closed/inner");
    zkfs::test::runUnprivileged([&] {
        EXPECT_IDENTIFIED_ERROR((void)fs::status(inner), "QUORIN:filesystem:accessDenied", inner);
        EXPECT_THROW((void)fs::symlink_status(inner), fs::AccessDenied);
        EXPECT_THROW((void)fs::canonical(inner, u""), fs::AccessDenied);
    });
}

TEST_F(PathLayer, CanonicalResolvesEveryLinkAndRemoveTakesTheName) {
    EXPECT_EQ(fs::canonical(p("link-to-file"), u""), p("f"));
    EXPECT_EQ(fs::canonical(p("link-to-folder/../f"), u""), p("f"));
    EXPECT_EQ(fs::canonical(u"link-to-folder", p("")), p("d"));
    EXPECT_IDENTIFIED_ERROR((void)fs::canonical(p("dangling"), u""),
                            "QUORIN:filesystem:pathNotFound", p("dangling"));
    EXPECT_THROW((void)fs::canonical(p("loop"), u""), fs::SystemError);
    {
        InFolder here(tree_.root());
        EXPECT_EQ(fs::canonical(u"./link-to-file", u""), p("f"));
    }

    EXPECT_TRUE(fs::remove(p("link-to-file")));
    EXPECT_TRUE(std::filesystem::exists(tree_.path("f")));
    EXPECT_TRUE(fs::remove(p("dangling")));
    EXPECT_FALSE(fs::remove(p("dangling")));
    EXPECT_TRUE(fs::remove(p("d/../f")));
    EXPECT_FALSE(std::filesystem::exists(tree_.path("f")));
    tree_.makeFile("full/x");
    EXPECT_IDENTIFIED_ERROR((void)fs::remove(p("full")), "QUORIN:filesystem:systemError", p("full"),
                            std::string("Directory not empty"), std::int64_t{ENOTEMPTY});
    EXPECT_TRUE(std::filesystem::exists(tree_.path("full/x")));
    EXPECT_TRUE(fs::remove(p("d")));
}

TEST(PathManagement, StringsAndIRIs) {
    using Hexfarrow::PathManagement::GetIRIFromString;
    using Hexfarrow::PathManagement::GetStringFromIRI;
    zkfs::test::TempTree tree;
    InFolder here(tree.root());
    EXPECT_EQ(
        GetIRIFromString(u"a b/./c").toString(),
        foundation::storage::vfs::toAbsoluteIRI(u"file", tree.upath("") + u"/a b/c").toString());
    EXPECT_EQ(GetIRIFromString(u"/x//y#1").toString(), u"file:///x/y%231");
    EXPECT_EQ(GetIRIFromString(u"http://h/a b").toString(), u"http://h/a%20b");
    EXPECT_IDENTIFIED_ERROR((void)GetIRIFromString(u""), "QUORIN:storage:invalidIRI",
                            fl::ustring());
    EXPECT_EQ(GetStringFromIRI(GetIRIFromString(u"/x y/\u00e4#")), u"/x y/\u00e4#");
    EXPECT_EQ(GetStringFromIRI(foundation::storage::vfs::AbsoluteIRI(u"http://h/a%20b")),
              u"http://h/a%20b");
    EXPECT_EQ(GetStringFromIRI(foundation::storage::vfs::AbsoluteIRI(u"file://")), u"");
}

}  // namespace
