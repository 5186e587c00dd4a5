// The builders every test relies on refuse what they cannot build faithfully.
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include <gtest/gtest.h>

namespace zkfs::test {
namespace {

class ArrayBuilders : public LiveArrayTest {};

// A table row with a wrong count must fail loudly, never build a smaller array that a
// test then passes with. (Shapes and storage order show in every test that reads them.)
TEST_F(ArrayBuilders, RefusesInconsistentInput) {
    EXPECT_THROW((void)charArray({2, 2}, u"abc"), std::invalid_argument);
    EXPECT_THROW((void)charMatrix({u"ab", u"c"}), std::invalid_argument);
    EXPECT_THROW((void)logicalArray({1, 2}, {true}), std::invalid_argument);
    EXPECT_THROW((void)stringArray({2, 1}, {u"x"}), std::invalid_argument);
    EXPECT_THROW((void)structArray({1, 1}, {"A"}, {}), std::invalid_argument);
    EXPECT_THROW((void)sparse(charRow(u"x")), std::invalid_argument);
}

}  // namespace
}  // namespace zkfs::test
