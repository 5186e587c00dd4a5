#pragma once
// The exported gateways, one per built-in of Builtins.def; the host resolves each by its
// symbol. Argument counts (max out / min in / max in) are checked first in every gateway,
// through checkCounts<&gateway>, but createWindowsShortcutFcn, which refuses at once.
#include "quorin/gateway/Gateway.hpp"

#define QUORIN_BUILTIN_ARGS_constArgs const vqArray* const*
#define QUORIN_BUILTIN_ARGS_mutableArgs const vqArray**
#define QUORIN_BUILTIN_OPEN_namespaced namespace quorin::io::filesystem::quorin {
#define QUORIN_BUILTIN_CLOSE_namespaced }
#define QUORIN_BUILTIN_OPEN_global
#define QUORIN_BUILTIN_CLOSE_global
#define QUORIN_BUILTIN_SCOPE_namespaced ::quorin::io::filesystem::quorin::
#define QUORIN_BUILTIN_SCOPE_global ::

#define QUORIN_BUILTIN(name, scope, args, maxOut, minIn, maxIn, usage, details)                \
    QUORIN_BUILTIN_OPEN_##scope QUORIN_GATEWAY_EXPORT void name(int, unique_vqarray_ptr*, int, \
                                                                QUORIN_BUILTIN_ARGS_##args);   \
    QUORIN_BUILTIN_CLOSE_##scope
#include "quorin/io/filesystem/quorin/Builtins.def"
#undef QUORIN_BUILTIN

namespace quorin::gateway {

// The counts of one built-in, named by its gateway so that a misspelt name does not compile.
template <auto Gateway>
struct BuiltinCounts;

#define QUORIN_BUILTIN(name, scope, args, maxOut, minIn, maxIn, usage, details) \
    template <>                                                                 \
    struct BuiltinCounts<&QUORIN_BUILTIN_SCOPE_##scope name> {                  \
        static constexpr int kMaxOut = maxOut;                                  \
        static constexpr int kMinIn = minIn;                                    \
        static constexpr int kMaxIn = (maxIn) < 0 ? kNoLimit : (maxIn);         \
    };
#include "quorin/io/filesystem/quorin/Builtins.def"
#undef QUORIN_BUILTIN

template <auto Gateway>
void checkCounts(int outCount, int argCount) {
    using Counts = BuiltinCounts<Gateway>;
    static_assert(Counts::kMaxOut >= 0 && Counts::kMinIn >= 0, "this built-in checks no counts");
    checkCounts(outCount, argCount, Counts::kMaxOut, Counts::kMinIn, Counts::kMaxIn);
}

}  // namespace quorin::gateway

#undef QUORIN_BUILTIN_ARGS_constArgs
#undef QUORIN_BUILTIN_ARGS_mutableArgs
#undef QUORIN_BUILTIN_OPEN_namespaced
#undef QUORIN_BUILTIN_CLOSE_namespaced
#undef QUORIN_BUILTIN_OPEN_global
#undef QUORIN_BUILTIN_CLOSE_global
#undef QUORIN_BUILTIN_SCOPE_namespaced
#undef QUORIN_BUILTIN_SCOPE_global

extern "C" {
QUORIN_GATEWAY_EXPORT void QNInitialize_libzkfilesystemquorin();
QUORIN_GATEWAY_EXPORT void QNTerminate_libzkfilesystemquorin();
}
