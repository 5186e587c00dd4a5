#pragma once
// Proof that a call releases everything it built.
//
// LiveArrayGuard notes vqLiveArrayCount() when it is made and adds a non-fatal failure
// when it is destroyed with a different count. Hold the arguments and the output slots
// outside its scope (make them before the guard, or release them inside it), so that only
// what the call itself built is counted:
//
//     ArgList args(charRow(u"x"));
//     {
//         LiveArrayGuard guard;
//         OutputSlots out;
//         gateway(1, out.data(), args.count(), args.data());
//     }  // the result in `out` is freed here, before the guard checks
//
// LiveArrayTest is a fixture base doing the same around a whole test body (TearDown runs
// after the body's locals are gone, before the fixture's own members are).
#include <gtest/gtest.h>

namespace zkfs::test {

class LiveArrayGuard {
public:
    LiveArrayGuard() noexcept;
    LiveArrayGuard(const LiveArrayGuard&) = delete;
    LiveArrayGuard& operator=(const LiveArrayGuard&) = delete;
    ~LiveArrayGuard();

    // How many arrays are alive now that were not when the guard was made.
    [[nodiscard]] long change() const noexcept;

private:
    long start_;
};

class LiveArrayTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

private:
    long start_ = 0;
};

}  // namespace zkfs::test
