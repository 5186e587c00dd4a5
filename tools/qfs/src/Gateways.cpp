#include "qfs/Gateways.hpp"

#include <array>
#include <cstddef>
#include <string_view>

namespace qfs {
namespace {

enum class Scope { namespaced, global };
enum class Args { constArgs, mutableArgs };

struct Symbol {
    char text[128] = {};
};

// The Itanium C++ ABI name of `void name(int, unique_vqarray_ptr*, int, <args>)`, as the
// library's declarations in quorin/io/filesystem/quorin/Builtins.hpp get it. The last
// parameter names vqArray again by substitution, numbered after the names seen before it:
// the four namespaces (when there are any), then std::unique_ptr.
consteval Symbol mangle(std::string_view name, Scope scope, Args args) {
    Symbol out;
    std::size_t n = 0;
    const auto put = [&](std::string_view part) {
        // Throwing here stops the compilation: the buffer is too small for this name.
        if (n + part.size() >= sizeof out.text) throw "symbol too long";
        for (const char c : part) out.text[n++] = c;
    };
    const auto putLength = [&](std::size_t length) {
        char digits[20] = {};
        std::size_t d = 0;
        do {
            digits[d++] = static_cast<char>('0' + length % 10);
            length /= 10;
        } while (length != 0);
        while (d != 0) put(std::string_view(&digits[--d], 1));
    };
    const bool namespaced = scope == Scope::namespaced;
    put(namespaced ? "_ZN6quorin2io10filesystem6quorin" : "_Z");
    putLength(name.size());
    put(name);
    if (namespaced) put("E");
    put("iPSt10unique_ptrI7vqArray17vqDestroy_deleterEi");
    put(args == Args::mutableArgs ? "PPK" : "PKPK");
    put(namespaced ? "S4_" : "S0_");
    return out;
}

namespace symbol {
#define QUORIN_BUILTIN(name, scope, args, maxOut, minIn, maxIn, usage, details) \
    constexpr Symbol name = mangle(#name, Scope::scope, Args::args);
#include "quorin/io/filesystem/quorin/Builtins.def"
#undef QUORIN_BUILTIN
}  // namespace symbol

constexpr std::array kGateways{
#define QUORIN_BUILTIN(name_, scope_, args_, maxOut_, minIn_, maxIn_, usage_, details_) \
    GatewayInfo{.name = #name_,                                                         \
                .symbol = symbol::name_.text,                                           \
                .mutableArgsPointer = Args::args_ == Args::mutableArgs,                 \
                .maxOut = maxOut_,                                                      \
                .minIn = minIn_,                                                        \
                .maxIn = maxIn_,                                                        \
                .usage = usage_,                                                        \
                .details = details_},
#include "quorin/io/filesystem/quorin/Builtins.def"
#undef QUORIN_BUILTIN
};

}  // namespace

std::span<const GatewayInfo> gateways() { return kGateways; }

const GatewayInfo* findGateway(std::string_view name) {
    for (const auto& g : kGateways) {
        if (name == g.name) return &g;
    }
    return nullptr;
}

std::string gatewayNames() {
    std::string out;
    for (const auto& g : kGateways) {
        if (!out.empty()) out += ", ";
        out += g.name;
    }
    return out;
}

}  // namespace qfs
