#pragma once
// The fuzz targets, by name. FuzzMain.cpp runs one under libFuzzer (a program per target,
// named when it is built); ReplayMain.cpp replays saved inputs through any of them.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zkfs::fuzz {

struct Target {
    std::string_view name;
    // Called once before any input. `writable` lists the folders the driver must keep
    // writing to. Returns 0, or 77 when the target cannot run here (the replay reports it
    // as skipped, libFuzzer stops).
    int (*init)(const std::vector<std::string>& writable);
    // Runs one input; a finding aborts.
    int (*runOne)(const std::uint8_t* data, std::size_t size);
};

// Every target: one per built-in, then the qfs parser, then IRIs.
std::span<const Target> targets();

// Null when no target has that name.
const Target* findTarget(std::string_view name);

// What each target source contributes to targets().
std::span<const Target> gatewayTargets();  // gateway_fuzz.cpp
Target qfsParserTarget();                  // qfs_parser_fuzz.cpp
Target iriTarget();                        // iri_fuzz.cpp

}  // namespace zkfs::fuzz
