#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "vq/vqArray.hpp"
#include "zkfs/test/LiveArrays.hpp"

namespace {

using zkfs::test::LiveArrayGuard;

TEST(LiveArrayGuard, QuietWhenBalanced) {
    LiveArrayGuard guard;
    { const auto a = vqCreateDoubleScalar(1); }
    EXPECT_EQ(guard.change(), 0);
}

TEST(LiveArrayGuard, ReportsALeak) {
    vqArray* leaked = nullptr;
    EXPECT_NONFATAL_FAILURE(
        {
            LiveArrayGuard guard;
            leaked = vqCreateDoubleScalar(1).release();
        },
        "changed by 1");
    vqDestroy_deleter{}(leaked);
}

TEST(LiveArrayGuard, ReportsAnArrayFreedThatWasNotBuiltInside) {
    auto borrowed = vqCreateDoubleScalar(1);
    EXPECT_NONFATAL_FAILURE(
        {
            LiveArrayGuard guard;
            borrowed.reset();
        },
        "changed by -1");
}

}  // namespace
