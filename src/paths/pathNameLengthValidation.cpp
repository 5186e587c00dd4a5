// pathNameLengthValidation: whether each path name fits the length the host's file
// functions accept. Text only: nothing is looked up on disk.
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "matrix/matrix.hpp"

#include <cstddef>
#include <optional>
#include <vector>

namespace {

// Counted in UTF-16 code units, as the host stores text: a character outside the Basic
// Multilingual Plane takes two.
constexpr std::size_t kMaxPathNameLength = 4352;

}  // namespace

void pathNameLengthValidation(int outCount, unique_vqarray_ptr* outputs, int argCount,
                              const vqArray* const* args) {
    quorin::gateway::checkCounts<&pathNameLengthValidation>(outCount, argCount);

    // Gathered first and copied out at the end, so a bad cell half-way has built no
    // host array at all.
    std::vector<bool> valid;
    valid.reserve(quorin::gateway::textElementCount(args[0]));
    quorin::gateway::forEachText(args[0],
                                 [&](std::size_t, const std::optional<fl::ustring_view>& text) {
                                     // A missing string names no path, so it cannot be too long.
                                     valid.push_back(!text || text->size() <= kMaxPathNameLength);
                                 });

    // One column whatever the input's shape: callers index it by linear position.
    unique_vqarray_ptr result =
        matrix::detail::do_create_uninitnumeric({valid.size(), 1}, vqLOGICAL_CLASS, vqREAL);
    vqLogical* out = vqGetLogicals(result.get());
    for (std::size_t i = 0; i < valid.size(); ++i) out[i] = valid[i];
    quorin::gateway::handOver(outputs, 0, std::move(result));
}
