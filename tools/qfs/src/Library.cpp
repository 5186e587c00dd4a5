#include "qfs/Library.hpp"

#include "qfs/Identifiers.hpp"
#include "quorin/gateway/Gateway.hpp"

#include "foundation/core/except/Exception.hpp"

#include <filesystem>
#include <system_error>

#include <dlfcn.h>

namespace qfs {
namespace {

using Hook = void();
// relativepath's declared parameter type differs from the common GatewayFunction.
using MutableArgsGateway = void(int, unique_vqarray_ptr*, int, const vqArray**);

template <class F>
F* asFunction(void* symbol) {
    return reinterpret_cast<F*>(symbol);  // dlsym hands out code addresses as void*
}

std::size_t indexOf(const GatewayInfo& gateway) {
    return static_cast<std::size_t>(&gateway - gateways().data());
}

}  // namespace

Library::Library(const std::string& path) : path_(path) {
    // A bare file name would send dlopen searching the system's folders.
    std::error_code ec;
    const std::filesystem::path absolute = std::filesystem::absolute(path, ec);
    const std::string opened = ec ? path : absolute.string();
    handle_ = dlopen(opened.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        const char* why = dlerror();
        foundation::core::except::throwMsgID(
            QUORIN::qfs::LibraryNotLoaded(path, why != nullptr ? why : "unknown reason"));
    }
    void* load = dlsym(handle_, kLoadHook);
    if (load == nullptr) {
        dlclose(handle_);
        handle_ = nullptr;
        foundation::core::except::throwMsgID(QUORIN::qfs::LibraryNotLoaded(
            path, std::string("it does not export the load hook ") + kLoadHook));
    }
    entries_.reserve(gateways().size());
    for (const auto& g : gateways()) entries_.push_back(dlsym(handle_, g.symbol));
    asFunction<Hook>(load)();
}

Library::~Library() {
    if (handle_ == nullptr) return;
    if (void* unload = dlsym(handle_, kUnloadHook); unload != nullptr) asFunction<Hook>(unload)();
    dlclose(handle_);
}

std::string Library::defaultPath() {
    const char* name = "libzkfilesystemquorin.so";
    std::error_code ec;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    const std::filesystem::path base =
        ec ? std::filesystem::path(".") : exe.parent_path().parent_path();
    const std::filesystem::path beside = base / "lib" / name;
    if (std::filesystem::exists(beside, ec)) return beside.string();
    const std::filesystem::path installed = base / QFS_INSTALL_LIBDIR / name;
    if (std::filesystem::exists(installed, ec)) return installed.string();
    return beside.string();
}

bool Library::has(const GatewayInfo& gateway) const {
    return entries_.at(indexOf(gateway)) != nullptr;
}

void Library::call(const GatewayInfo& gateway, int outCount, unique_vqarray_ptr* outputs,
                   int argCount, const vqArray** args) const {
    void* entry = entries_.at(indexOf(gateway));
    if (entry == nullptr)
        foundation::core::except::throwMsgID(QUORIN::qfs::NotAvailable(gateway.name));
    if (gateway.mutableArgsPointer) {
        asFunction<MutableArgsGateway>(entry)(outCount, outputs, argCount, args);
    } else {
        asFunction<GatewayFunction>(entry)(outCount, outputs, argCount, args);
    }
}

}  // namespace qfs
