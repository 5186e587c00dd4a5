#include "zkfs/test/LiveArrays.hpp"

#include "vq/vqArray.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace {

using zkfs::test::LiveArrayGuard;

// Quiet when balanced; a leak and an array freed that was not built inside both fail.
TEST(LiveArrayGuard, ReportsEveryChange) {
    {
        LiveArrayGuard guard;
        const auto a = vqCreateDoubleScalar(1);
    }
    vqArray* leaked = nullptr;
    EXPECT_NONFATAL_FAILURE(
        {
            LiveArrayGuard guard;
            leaked = vqCreateDoubleScalar(1).release();
        },
        "changed by 1");
    EXPECT_NONFATAL_FAILURE(
        {
            LiveArrayGuard guard;
            vqDestroy_deleter{}(leaked);
        },
        "changed by -1");
}

}  // namespace
