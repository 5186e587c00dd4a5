// Path analysis built-ins through their gateways, on one string column as the host would
// hand it over. The data is a list file (one path a line) made by bench/run, named in
// ZKFS_BENCH_DATA. Building the argument is the host's work and stays outside the timed
// loop; the result struct array (and its release) is ours and stays inside.
#include "BenchData.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

using zkfs::bench::readLines;
using zkfs::bench::stringColumn;
using zkfs::bench::timeGateway;

// Peers: `realpath` over the list, and a Python loop of os.stat + os.access.
void BM_ResolvePathWithAttributes(benchmark::State& state) {
    const auto paths = readLines(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr column = stringColumn(paths);
    timeGateway(state, quorin::io::filesystem::quorin::resolvePathFcnWithAttributes, {column.get()},
                paths.size());
}
BENCHMARK(BM_ResolvePathWithAttributes)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

// Peer: os.path.split, os.path.splitext and urllib.parse.urlsplit over the same texts.
void BM_PathFcn(benchmark::State& state) {
    const auto paths = readLines(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr column = stringColumn(paths);
    const unique_vqarray_ptr convention = vqCreateString(u"unix");
    timeGateway(state, quorin::io::filesystem::quorin::pathFcn, {column.get(), convention.get()},
                paths.size());
}
BENCHMARK(BM_PathFcn)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

}  // namespace
