// Filesystem core cases. The data is a list file (one path a line) that bench/run made;
// its name comes in ZKFS_BENCH_DATA.
#include "BenchData.hpp"
#include "quorin/io/filesystem/core/ResolvePath.hpp"

#include "fl/i18n/unicode.hpp"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

// Every path resolved to its canonical form, as realpath(1) does for the same list; the
// UTF-16 conversion in and out is part of the cost, as it is for a built-in.
void BM_ResolvePathCanonical(benchmark::State& state) {
    const std::vector<fl::ustring> paths = zkfs::bench::readLines(state);
    if (paths.empty()) return;
    quorin::io::filesystem::core::ResolvePathOptions options;
    options.ResolveSymbolicLinks = true;
    std::size_t resolved = 0;
    for (auto _ : state) {
        resolved = 0;
        for (const auto& p : paths) {
            auto r = quorin::io::filesystem::core::resolvePath(p, options);
            resolved += r.path.empty() ? 0U : 1U;
            benchmark::DoNotOptimize(r);
        }
    }
    if (resolved != paths.size()) state.SkipWithError("some paths did not resolve");
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths.size()));
}
BENCHMARK(BM_ResolvePathCanonical)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

}  // namespace
