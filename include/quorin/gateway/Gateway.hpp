#pragma once
// The calling frame shared by every built-in.
//
// The host calls a gateway with the number of results asked for (`outCount`, 0 when none),
// at least one result slot, the number of arguments and the borrowed arguments. The
// gateway tests the counts first, then reads its arguments, then stores results.
#include "vq/vqArray.hpp"

#define QUORIN_GATEWAY_EXPORT __attribute__((visibility("default")))

using GatewayFunction = void(int outCount, unique_vqarray_ptr* outputs, int argCount,
                             const vqArray* const* args);

namespace quorin::gateway {

inline constexpr int kNoLimit = -1;

// In this order: too many outputs, too many inputs (unless maxIn is kNoLimit), too few
// inputs; each through the host's count error, before any argument is looked at.
void checkCounts(int outCount, int argCount, int maxOut, int minIn, int maxIn);

// Moves a result into slot `slot`; whatever stood there is released by the reference
// rule. Never throws: a failure while releasing terminates, as the host demands.
void handOver(unique_vqarray_ptr* outputs, int slot, unique_vqarray_ptr&& result) noexcept;

}  // namespace quorin::gateway
