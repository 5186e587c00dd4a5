#include "zkfs/test/LiveArrays.hpp"

#include "vq/vqArray.hpp"

namespace zkfs::test {

LiveArrayGuard::LiveArrayGuard() noexcept : start_(vqLiveArrayCount()) {}

long LiveArrayGuard::change() const noexcept { return vqLiveArrayCount() - start_; }

LiveArrayGuard::~LiveArrayGuard() {
    const long delta = change();
    if (delta != 0) {
        ADD_FAILURE() << "the live-array count changed by " << delta
                      << " (leaked arrays when positive, arrays freed twice or borrowed "
                         "arrays freed when negative)";
    }
}

void LiveArrayTest::SetUp() { start_ = vqLiveArrayCount(); }

void LiveArrayTest::TearDown() {
    EXPECT_EQ(vqLiveArrayCount(), start_) << "the test left host arrays alive or freed too many";
}

}  // namespace zkfs::test
