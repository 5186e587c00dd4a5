#include "quorin/gateway/Gateway.hpp"

#include "matrix/matrix.hpp"

namespace quorin::gateway {

void checkCounts(int outCount, int argCount, int maxOut, int minIn, int maxIn) {
    if (outCount > maxOut) matrix::detail::error_maxlhs();
    if (maxIn != kNoLimit && argCount > maxIn) matrix::detail::error_maxrhs();
    if (argCount < minIn) matrix::detail::error_minrhs();
}

void handOver(unique_vqarray_ptr* outputs, int slot, unique_vqarray_ptr&& result) noexcept {
    outputs[slot] = std::move(result);
}

}  // namespace quorin::gateway
