#pragma once
// Loading the built-in library the way the host does: dlopen, the load hook, each gateway
// resolved by its exported symbol, the unload hook and dlclose when the object goes.
//
// A library that cannot be opened, or that lacks the load hook, throws the identified
// error QUORIN:qfs:LibraryNotLoaded (path, the loader's reason). A gateway whose symbol
// the library does not export is simply absent: has() answers false and call() throws
// QUORIN:qfs:NotAvailable naming it.
#include "qfs/Gateways.hpp"

#include "vq/vqArray.hpp"

#include <string>
#include <vector>

namespace qfs {

class Library {
public:
    explicit Library(const std::string& path);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // libzkfilesystemquorin.so in ../lib beside the running executable (found through
    // /proc/self/exe), else in the install tree's library folder.
    static std::string defaultPath();

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] bool has(const GatewayInfo& gateway) const;

    // Calls the gateway with the host's calling convention; exceptions of the call pass.
    void call(const GatewayInfo& gateway, int outCount, unique_vqarray_ptr* outputs, int argCount,
              const vqArray** args) const;

private:
    std::string path_;
    void* handle_ = nullptr;
    std::vector<void*> entries_;  // indexed like gateways(); null when not exported
};

}  // namespace qfs
