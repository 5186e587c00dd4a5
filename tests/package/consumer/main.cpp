// Uses the installed library and host the way a program embedding them would: loads the
// library, builds host arrays, calls a gateway, reads an identified error and its text.
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "foundation/core/except/Exception.hpp"
#include "matrix/matrix.hpp"

#include <cstdio>
#include <string>

// Weak: the test judges the package, not whether this one gateway is finished.
__attribute__((weak)) void mkSymlinkFcn(int, unique_vqarray_ptr*, int, const vqArray* const*);

namespace {

int fail(const char* what) {
    std::printf("consumer failed: %s\n", what);
    return 1;
}

}  // namespace

int main() {
    QNInitialize_libzkfilesystemquorin();
    const long before = vqLiveArrayCount();
    {
        auto text = Hexfarrow::String::createStringArray(u"/tmp");
        if (!Hexfarrow::String::isScalarText(text.get(), false, false))
            return fail("string scalar");
        if (vqLiveArrayCount() != before + 1) return fail("live-array counter");
    }
    try {
        matrix::detail::error_maxrhs();
    } catch (const foundation::core::except::IMsgIDException& e) {
        if (e.GetID() != "QUORIN:TooManyInputs") return fail("wrong host identifier");
        if (std::string(e.what()).empty()) return fail("no catalog text installed");
    }
    if (mkSymlinkFcn != nullptr) {
        unique_vqarray_ptr out[1];
        const vqArray* args[2] = {nullptr, nullptr};
        try {
            mkSymlinkFcn(1, out, 2, args);
            return fail("mkSymlinkFcn accepted one output");
        } catch (const foundation::core::except::IMsgIDException& e) {
            // Caught by its host base class across the library boundary.
            if (e.GetID() != "QUORIN:TooManyOutputs") return fail("wrong identifier");
            const std::string text = e.what();
            if (text.empty() || text == e.GetID()) return fail("no catalog text installed");
        }
    }
    if (vqLiveArrayCount() != before) return fail("arrays left alive");
    QNTerminate_libzkfilesystemquorin();
    std::printf("consumer ok\n");
    return 0;
}
