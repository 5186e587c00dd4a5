// qfs's two JSON writers (--json, --json=plain) on what a large answer looks like: a
// 200,000-element struct array shaped as resolvePathFcnWithAttributes returns it, paths
// from the list file in ZKFS_BENCH_DATA. Building the struct is the library's work and
// stays outside the timed loop; writing the line is ours. Reported in bytes per second
// (the goal is 200 MB/s) and per element (the peer: Python's json.dumps of the same rows).
#include "BenchData.hpp"
#include "qfs/Json.hpp"

#include "Hexfarrow/String/String.hpp"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

unique_vqarray_ptr attributeRows(const std::vector<fl::ustring>& paths) {
    auto rows = vqCreateStructArray({paths.size(), 1}, {"ResolvedPath", "Type", "Readable",
                                                        "Writable", "LastModified", "Size"});
    for (std::size_t k = 0; k < paths.size(); ++k) {
        vqSetFieldByNumber(rows.get(), k, 0,
                           Hexfarrow::String::createStringArray(paths[k]).release());
        vqSetFieldByNumber(rows.get(), k, 1,
                           Hexfarrow::String::createStringArray(fl::ustring(u"File")).release());
        vqSetFieldByNumber(rows.get(), k, 2, vqCreateLogicalScalar(true).release());
        vqSetFieldByNumber(rows.get(), k, 3, vqCreateLogicalScalar(k % 3 != 0).release());
        vqSetFieldByNumber(
            rows.get(), k, 4,
            vqCreateDoubleScalar(1763764800123.0 + static_cast<double>(k)).release());
        vqSetFieldByNumber(rows.get(), k, 5,
                           vqCreateDoubleScalar(static_cast<double>(k * 37 % 100000)).release());
    }
    return rows;
}

template <void (*Write)(std::string&, const vqArray*)>
void writeRows(benchmark::State& state) {
    const auto paths = zkfs::bench::readLines(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr rows = attributeRows(paths);
    std::size_t bytes = 0;
    for (auto _ : state) {
        std::string line;
        Write(line, rows.get());
        bytes += line.size();
        benchmark::DoNotOptimize(line.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths.size()));
}

void BM_JsonTyped(benchmark::State& state) { writeRows<qfs::writeTyped>(state); }
void BM_JsonPlain(benchmark::State& state) { writeRows<qfs::writePlain>(state); }
// One thread that only computes: its processor time is what writing costs, also on a
// machine other work keeps busy (where the wall clock counts the waits for a processor).
BENCHMARK(BM_JsonTyped)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_JsonPlain)->Unit(benchmark::kMillisecond)->MinTime(1.0);

}  // namespace
