#pragma once
// Running a block without root's privileges, so that permission bits are obeyed.
//
// As root, runUnprivileged forks; the child drops its supplementary groups, then takes
// the group and user of "nobody"/"nogroup" (65534 when the names are unknown), checks
// that it can no longer become root, and runs the block. Failures of GoogleTest
// assertions inside the block, an escaping exception and an abnormal end of the child
// all become failures of the calling test, with the file and line where they happened.
// The child ends with _exit: no destructors or atexit handlers of the parent's state run
// twice.
//
// As any other user the block runs in this process (permission bits already apply); its
// failures are reported the same way, fatal ones as non-fatal failures of the caller.
//
// The block must not rely on memory it changes being seen by the parent: report through
// assertions only.
#include <cstdint>
#include <functional>

namespace zkfs::test {

[[nodiscard]] bool runningAsRoot() noexcept;

// The user and group the child takes when running as root.
struct UnprivilegedIds {
    std::uint32_t uid;
    std::uint32_t gid;
};
[[nodiscard]] UnprivilegedIds unprivilegedIds();

void runUnprivileged(const std::function<void()>& block);

}  // namespace zkfs::test
