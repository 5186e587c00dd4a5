#pragma once
// What every fuzz target defines; FuzzMain.cpp adapts it to libFuzzer, ReplayMain.cpp to
// a plain program that replays saved inputs (the regression tests).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Called once before any input. `writable` lists the folders the driver must keep
// writing to. Returns 0, or 77 when the target cannot run here (the replay reports it as
// skipped, libFuzzer stops).
int zkfsFuzzInit(const std::vector<std::string>& writable);

// Runs one input; a finding aborts.
int zkfsFuzzOne(const std::uint8_t* data, std::size_t size);
