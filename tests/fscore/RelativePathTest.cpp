// Relative locations, computed on the texts.
#include "quorin/io/filesystem/core/RelativePath.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace core = quorin::io::filesystem::core;
namespace vfs = foundation::storage::vfs;

namespace {
struct Row {
    const char16_t* source;
    const char16_t* destination;
    const char16_t* expected;  // the answer, or the text named by the error
};
std::string describe(const Row& r) {
    return fl::i18n::to_utf8(r.source) + " -> " + fl::i18n::to_utf8(r.destination);
}
}  // namespace

TEST(RelativePath, LocalPathsAndIRIs) {
    const Row rows[] = {
        {u"/", u"/", u"."},
        {u"/a/b", u"/a/b", u"."},
        {u"/a/b/", u"/a/b", u"."},
        {u"/", u"/x", u"x"},
        {u"/x", u"/", u".."},
        {u"/a/b", u"/a/b/c/d.txt", u"c/d.txt"},
        {u"/a/b/c", u"/a/d", u"../../d"},
        {u"/a/b", u"/x/y", u"../../x/y"},
        {u"/a//b/./", u"/a/b/../c", u"../c"},
        {u"/../a", u"/a/b", u"b"},
        {u"/a/bc", u"/a/b", u"../b"},
        {u"/données/a", u"/données/b/été", u"../b/été"},
        {u"/a/\xDCFF", u"/a/\xDCFF/x", u"x"},
        {u"http://h/a/b", u"http://h/a/b", u"."},
        {u"http://h/a/b", u"http://h/a/c?q=1#f", u"../c?q=1#f"},
        {u"HTTP://H/a", u"http://h/a/b", u"b"},
        {u"http://h:8080/", u"http://h:8080/x/y", u"x/y"},
        {u"file:///a/b", u"file:///a/c", u"../c"},
        {u"http://h/a", u"http://h/a/x:y", u"./x:y"},
        {u"http://h/a", u"http://h/a/sp%20ace", u"sp%20ace"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(describe(r));
        EXPECT_EQ(core::relative_path(r.source, r.destination), fl::ustring(r.expected));
    }
}

TEST(RelativePath, InvalidLocationsSourceFirstAndNoCommonRoot) {
    const Row rows[] = {
        {u"", u"/a", u""},
        {u"a/b", u"/a", u"a/b"},
        {u"/a", u"b", u"b"},
        {u"C:\\x", u"/a", u"C:\\x"},
        {u"rel", u"also-rel", u"rel"},
        {u"/a", u"http://[::1/x", u"http://[::1/x"},
        // No common root: std::invalid_argument.
        {u"/a", u"http://h/a", nullptr},
        {u"file:///a", u"/a", nullptr},
        {u"http://a/x", u"http://b/x", nullptr},
        {u"http://h/", u"https://h/", nullptr},
        {u"http://h:1/", u"http://h:2/", nullptr},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(describe(r));
        if (r.expected == nullptr) {
            EXPECT_THROW(core::relative_path(r.source, r.destination), std::invalid_argument);
            continue;
        }
        try {
            (void)core::relative_path(r.source, r.destination);
            ADD_FAILURE() << "no exception";
        } catch (const vfs::InvalidIRIException& e) {
            EXPECT_EQ(e.getInvalidIRIString(), fl::ustring(r.expected));
        }
    }
}
