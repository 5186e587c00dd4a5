// createURLFromPartsFcn: a base URL and a relative reference joined into one URL.
//
// This built-in answers and never complains: any failure after the count checks gives
// the fresh 1x1 string array untouched, which its callers take for "no URL".
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

void createURLFromPartsFcn(int outCount, unique_vqarray_ptr* outputs, int argCount,
                           const vqArray* const* args) {
    namespace vfs = foundation::storage::vfs;
    quorin::gateway::checkCounts<&createURLFromPartsFcn>(outCount, argCount);

    unique_vqarray_ptr result = Hexfarrow::String::createStringArray(1, 1);
    if (!Hexfarrow::String::isMissingScalarString(args[0])) {
        try {
            const fl::ustring baseText = quorin::gateway::convertScalarText(args[0], true);
            const fl::ustring relativeText = quorin::gateway::convertScalarText(args[1], true);
            const vfs::AbsoluteIRI base(baseText);
            const vfs::AbsoluteIRI joined(base, relativeText);
            Hexfarrow::String::getMutableString(result.get()).set(0, joined.toString());
        } catch (...) {
            // Deliberately swallowed, argument errors included: see the top of this file.
        }
    }
    quorin::gateway::handOver(outputs, 0, std::move(result));
}
