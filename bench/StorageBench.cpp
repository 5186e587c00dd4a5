// Storage cases. Each reads the data folder that bench/run made from ZKFS_BENCH_DATA
// and reports items processed, so bench/run can give a time per element.
#include "Hexfarrow/PathManagement/PathManagement.hpp"
#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/Folder.hpp"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

namespace {

const char* benchData(benchmark::State& state) {
    const char* data = std::getenv("ZKFS_BENCH_DATA");
    if (data == nullptr || *data == '\0') {
        state.SkipWithError("ZKFS_BENCH_DATA is not set: run the benchmarks through bench/run");
    }
    return data;
}

// The recursive listing of a whole tree; the peer is find(1) over the same tree.
void BM_ListAllRecursive(benchmark::State& state) {
    const char* data = benchData(state);
    if (data == nullptr || *data == '\0') return;
    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    const foundation::storage::vfs::Folder folder(
        Hexfarrow::PathManagement::GetIRIFromString(fl::i18n::to_ustring(data)), storage);
    std::size_t entries = 0;
    for (auto _ : state) {
        const auto listing = folder.listAllRecursive();
        entries = listing.size();
        benchmark::DoNotOptimize(listing);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<benchmark::IterationCount>(entries));
    state.counters["entries"] = static_cast<double>(entries);
}
BENCHMARK(BM_ListAllRecursive)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

}  // namespace
