// Text-only built-ins, called through their gateways on one string array as the host
// would hand it over. The data is a list file (one path a line) that bench/run made; its
// name comes in ZKFS_BENCH_DATA. For relativepath the first line is the source folder.
// Building the argument array is the host's work and stays outside the timed loop; the
// result array (and its release) is ours and stays inside.
#include "BenchData.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace {

using zkfs::bench::readLines;
using zkfs::bench::stringColumn;
using zkfs::bench::timeGateway;

// Peer: os.path.isabs over the same list.
void BM_IsAbsolutePathNoIO(benchmark::State& state) {
    const auto paths = readLines(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr column = stringColumn(paths);
    timeGateway(state, isAbsolutePathNoIOFcn, {column.get()}, paths.size());
}
BENCHMARK(BM_IsAbsolutePathNoIO)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

// Peer: len(p) <= 4352 over the same list.
void BM_PathNameLengthValidation(benchmark::State& state) {
    const auto paths = readLines(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr column = stringColumn(paths);
    timeGateway(state, pathNameLengthValidation, {column.get()}, paths.size());
}
BENCHMARK(BM_PathNameLengthValidation)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

// Peer: pathlib.Path(p).as_uri() over the same (absolute) paths.
void BM_CreateFileURL(benchmark::State& state) {
    const auto paths = readLines(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr column = stringColumn(paths);
    timeGateway(state, quorin::io::filesystem::quorin::createFileURL, {column.get()}, paths.size());
}
BENCHMARK(BM_CreateFileURL)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

// Peer: os.path.relpath(p, source) over the same destinations.
void BM_RelativePath(benchmark::State& state) {
    const auto lines = readLines(state);
    if (lines.size() < 2) {
        if (!lines.empty()) state.SkipWithError("no destinations after the source line");
        return;
    }
    const unique_vqarray_ptr source = Hexfarrow::String::createStringArray(lines[0]);
    const unique_vqarray_ptr destinations = stringColumn(lines, 1);
    timeGateway(state, relativepath, {source.get(), destinations.get()}, lines.size() - 1);
}
BENCHMARK(BM_RelativePath)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

}  // namespace
