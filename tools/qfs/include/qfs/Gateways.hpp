#pragma once
// The built-ins qfs knows, from the library's table (quorin/io/filesystem/quorin/
// Builtins.def): each gateway's unqualified name, its exported symbol (the mangled C++
// name the library's export map lists), its argument-count rules and the few lines
// `help NAME` shows.
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qfs {

struct GatewayInfo {
    const char* name;
    const char* symbol;
    // relativepath takes `const vqArray**` where every other gateway takes
    // `const vqArray* const*`; the call must use the declared type.
    bool mutableArgsPointer;
    int maxOut;           // -1: no test
    int minIn;            // -1: no test
    int maxIn;            // -1: no limit / no test
    const char* usage;    // one call form
    const char* details;  // arguments, options and outputs, one item a line
};

std::span<const GatewayInfo> gateways();

// Null when the name is no built-in.
const GatewayInfo* findGateway(std::string_view name);

// Every name, separated by ", ", in table order.
std::string gatewayNames();

// Exported symbols of the load and unload hooks.
inline constexpr const char* kLoadHook = "QNInitialize_libzkfilesystemquorin";
inline constexpr const char* kUnloadHook = "QNTerminate_libzkfilesystemquorin";

}  // namespace qfs
