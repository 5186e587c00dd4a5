// S3 cases, on the local server bench/run starts (its endpoint and key pair in the
// environment): existence checks of objects, one after another on kept connections. The
// recursive listing is BM_ListAllRecursive on an s3:// folder.
#include "Hexfarrow/PathManagement/PathManagement.hpp"
#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/StorageSystem.hpp"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// ZKFS_BENCH_DATA is "s3://BUCKET/PREFIX" holding the objects f0000 ... f0999.
void BM_S3Exists(benchmark::State& state) {
    const char* data = std::getenv("ZKFS_BENCH_DATA");
    if (data == nullptr || *data == '\0') {
        state.SkipWithError("ZKFS_BENCH_DATA is not set: run the benchmarks through bench/run");
        return;
    }
    std::vector<foundation::storage::vfs::AbsoluteIRI> objects;
    for (int i = 0; i < 1000; ++i) {
        char name[8];
        std::snprintf(name, sizeof name, "f%04d", i);
        objects.push_back(Hexfarrow::PathManagement::GetIRIFromString(
            fl::i18n::to_ustring(std::string(data) + "/" + name)));
    }
    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    for (auto _ : state) {
        for (const auto& o : objects) {
            if (foundation::storage::vfs::exists(o, storage) !=
                foundation::storage::provider::ExistenceType::File) {
                state.SkipWithError("an object of the data is missing");
                return;
            }
        }
    }
    state.SetItemsProcessed(state.iterations() *
                            static_cast<benchmark::IterationCount>(objects.size()));
}
BENCHMARK(BM_S3Exists)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

}  // namespace
