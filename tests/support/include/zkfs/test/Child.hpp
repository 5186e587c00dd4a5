#pragma once
// Running a block where the test process itself cannot: without root's privileges (so
// that permission bits are obeyed), or with a file system of its own.
//
// As root each runner forks; the child sets itself up and runs the block. Its GoogleTest
// assertions print where they fail, as in any test; an escaping exception counts as a
// failure, and a child that failed or ended abnormally fails the calling test. The child
// ends with _exit, so no destructor of the parent's state runs twice. The block must
// report through assertions only: what it changes in memory stays in the child.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace zkfs::test {

[[nodiscard]] bool runningAsRoot() noexcept;

// The user and group the child takes: "nobody"/"nogroup" (65534 when the names are
// unknown). The child drops its supplementary groups and checks it cannot become root
// again. Any other user runs the block in this process: permission bits already apply.
struct UnprivilegedIds {
    std::uint32_t uid;
    std::uint32_t gid;
};
[[nodiscard]] UnprivilegedIds unprivilegedIds();
void runUnprivileged(const std::function<void()>& block);

// Runs the block as root in a private mount namespace in which a tmpfs with `options` is
// mounted on `mountPoint`. False, with `why` set, when the system does not let the
// child mount (or the suite does not run as root): the caller skips.
bool runWithTmpfs(const std::string& mountPoint, const std::string& options,
                  const std::function<void()>& block, std::string& why);

// Runs the block in a child whose stack may grow to `stackBytes` and which may hold at
// most `descriptors` open files (both its soft and hard limits), as a user's `ulimit -s`
// and `ulimit -n` would hold it; with `moreAddressSpace`, its address space may grow by
// that many bytes beyond what it holds when the block starts (`ulimit -v`; AddressSanitizer
// reserves terabytes of shadow memory, so a sanitized build cannot run such a child).
void runWithLimits(std::size_t stackBytes, std::size_t descriptors,
                   const std::function<void()>& block, std::size_t moreAddressSpace = 0);

}  // namespace zkfs::test
