#include "zkfs/test/Errors.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

struct Two : resource_core::FixedMsgID<2> {
    template <class A, class B>
    Two(const A& a, const B& b) : FixedMsgID("QUORIN:selftest", "Two", a, b) {}
};
struct None : resource_core::FixedMsgID<0> {
    None() : FixedMsgID("QUORIN:selftest", "None") {}
};

[[noreturn]] void throwTwo() {
    foundation::core::except::throwMsgID(Two(fl::ustring(u"p\u00e4th"), std::int64_t{7}));
}
[[noreturn]] void throwNone() { foundation::core::except::throwMsgID(None()); }

TEST(IdentifiedErrorAssertion, AcceptsTheExactError) {
    EXPECT_IDENTIFIED_ERROR(throwTwo(), "QUORIN:selftest:Two", u"p\u00e4th", 7);
    EXPECT_IDENTIFIED_ERROR(throwNone(), "QUORIN:selftest:None");
}

TEST(IdentifiedErrorAssertion, RefusesEveryDifference) {
    EXPECT_NONFATAL_FAILURE(EXPECT_IDENTIFIED_ERROR((void)0, "QUORIN:selftest:None"),
                            "threw nothing");
    EXPECT_NONFATAL_FAILURE(EXPECT_IDENTIFIED_ERROR(throwNone(), "QUORIN:selftest:Other"),
                            "actual QUORIN:selftest:None");
    // Same characters, wrong alternative: 8-bit where UTF-16 is carried.
    EXPECT_NONFATAL_FAILURE(
        EXPECT_IDENTIFIED_ERROR(throwTwo(), "QUORIN:selftest:Two", "p\xc3\xa4th", 7),
        "expected QUORIN:selftest:Two (\"p");
    EXPECT_NONFATAL_FAILURE(
        EXPECT_IDENTIFIED_ERROR(throwTwo(), "QUORIN:selftest:Two", u"p\u00e4th", 8), "actual");
    EXPECT_NONFATAL_FAILURE(
        EXPECT_IDENTIFIED_ERROR(throwTwo(), "QUORIN:selftest:Two", u"p\u00e4th", "7"), "actual");
    EXPECT_NONFATAL_FAILURE(
        EXPECT_IDENTIFIED_ERROR(throwTwo(), "QUORIN:selftest:Two", u"p\u00e4th"), "actual");
    // An error without arguments must not pass for one with a zero.
    EXPECT_NONFATAL_FAILURE(EXPECT_IDENTIFIED_ERROR(throwNone(), "QUORIN:selftest:None", 0),
                            "actual QUORIN:selftest:None ()");
    EXPECT_NONFATAL_FAILURE(
        EXPECT_IDENTIFIED_ERROR(throw std::runtime_error("plain"), "QUORIN:selftest:None"),
        "plain");
}

}  // namespace
