#pragma once
// Calling a gateway as the host does (owned arguments, fresh result slots, so a test can
// check both what was stored and what was not), and the tables every built-in shares:
// refused arguments.
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"

#include "fl/i18n/ZkLocale.hpp"
#include "resource_core/MessageArg.hpp"
#include "vq/vqArray.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace zkfs::test {

// Every gateway as one function type, for tables: call<&relativepath>. relativepath takes
// a non-const outer pointer; every gateway accepts this copy.
using Call = void (*)(int, OutputSlots&, const ArgList&);
template <auto Gateway>
void call(int outCount, OutputSlots& out, const ArgList& args) {
    std::vector<const vqArray*> pointers(args.data(), args.data() + args.count());
    Gateway(outCount, out.data(), args.count(), pointers.data());
}

// Calls with no output asked for (the first slot is filled all the same) and hands back
// the result after checking its class and dimensions; null when there is none.
inline unique_vqarray_ptr resultOf(Call gateway, const ArgList& args, vqClassID cls,
                                   const Dims& dims) {
    OutputSlots out;
    gateway(0, out, args);
    unique_vqarray_ptr result = std::move(out.slot(0));
    EXPECT_NE(result, nullptr);
    if (result != nullptr) {
        EXPECT_EQ(vqGetClassID(result.get()), cls);
        EXPECT_EQ(dimsOf(result.get()), dims);
    }
    return result;
}
inline std::vector<StringElement> stringsFrom(Call gateway, const ArgList& args, const Dims& dims) {
    const unique_vqarray_ptr result = resultOf(gateway, args, vqSTRING_CLASS, dims);
    return result ? stringsOf(result.get()) : std::vector<StringElement>{};
}
inline std::vector<bool> logicalsFrom(Call gateway, const ArgList& args, const Dims& dims) {
    const unique_vqarray_ptr result = resultOf(gateway, args, vqLOGICAL_CLASS, dims);
    return result ? logicalsOf(result.get()) : std::vector<bool>{};
}

// Owned arrays as a vector (a null one stays null), for tables of arguments.
template <class... A>
std::vector<unique_vqarray_ptr> arrays(A&&... a) {
    std::vector<unique_vqarray_ptr> v;
    (v.push_back(std::forward<A>(a)), ...);
    return v;
}

// "char 2x3": names a table row by its argument (trailing dimensions folded).
inline std::string kindOf(const vqArray* a) {
    if (a == nullptr) return "null";
    return std::string(vqGetClassName(a)) + " " + std::to_string(vqGetM(a)) + "x" +
           std::to_string(vqGetN(a));
}

// Each bad array, placed in an argument list by `place`, is refused with `id` and exactly
// `expected` as its arguments, and nothing is stored.
inline void expectRefused(
    Call gateway, std::vector<unique_vqarray_ptr> bad, const char* id,
    const std::vector<resource_core::MessageArg>& expected,
    const std::function<ArgList(unique_vqarray_ptr)>& place = [](unique_vqarray_ptr a) {
        return ArgList(std::move(a));
    }) {
    for (unique_vqarray_ptr& arg : bad) {
        SCOPED_TRACE(kindOf(arg.get()));
        OutputSlots out;
        const ArgList args = place(std::move(arg));
        EXPECT_IDENTIFIED_ERROR(gateway(1, out, args), id, expected);
        EXPECT_EQ(out[0], nullptr);
    }
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
