#pragma once
// Calling a gateway as the host does: owned arguments, fresh result slots. The slots
// are handed back so a test can check both what was stored and what was not.
#include "zkfs/test/Arrays.hpp"

#include "fl/i18n/ZkLocale.hpp"
#include "vq/vqArray.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace zkfs::test {

template <class Gateway>
void callGateway(Gateway gateway, int outCount, OutputSlots& out, const ArgList& args) {
    // relativepath takes a non-const outer pointer; every gateway accepts this copy.
    std::vector<const vqArray*> pointers(args.data(), args.data() + args.count());
    gateway(outCount, out.data(), args.count(), pointers.data());
}

// Calls with one output asked for and returns that output.
template <class Gateway>
unique_vqarray_ptr callForResult(Gateway gateway, const ArgList& args) {
    OutputSlots out;
    callGateway(gateway, 1, out, args);
    return std::move(out.slot(0));
}

// Sets the host's global locale for one scope.
class ScopedLocale {
public:
    explicit ScopedLocale(std::string name) : saved_(fl::i18n::ZkLocale::global()) {
        fl::i18n::ZkLocale::global(fl::i18n::ZkLocale(std::move(name)));
    }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;
    ~ScopedLocale() { fl::i18n::ZkLocale::global(saved_); }

private:
    fl::i18n::ZkLocale saved_;
};

}  // namespace zkfs::test
