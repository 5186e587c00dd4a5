// isAbsolutePathNoIOFcn: whether each path text is absolute, decided on the text alone.
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/PathComponents.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "matrix/matrix.hpp"

#include <cstddef>
#include <optional>

namespace {

namespace core = quorin::io::filesystem::core;

// This platform's convention, URL rules for IRIs; the same for every element.
constexpr core::FileSystemType kNativeConvention = core::FileSystemType::Native;

bool isAbsoluteText(const fl::ustring& path) noexcept {
    // A text the core cannot judge is simply not absolute: one odd element must not
    // cost the caller the answers for all the others.
    try {
        const bool isIri = foundation::storage::vfs::hasIRIPrefix(path);
        return core::getIsAbsolute(path, isIri, kNativeConvention);
    } catch (...) {
        return false;
    }
}

}  // namespace

void isAbsolutePathNoIOFcn(int outCount, unique_vqarray_ptr* outputs, int argCount,
                           const vqArray* const* args) {
    quorin::gateway::checkCounts<&isAbsolutePathNoIOFcn>(outCount, argCount);
    const vqArray* paths = args[0];

    // Zero-filled before the walk, so an element the walk answers false needs no write.
    unique_vqarray_ptr result = matrix::detail::do_create_numeric(
        quorin::gateway::textResultDims(paths), vqLOGICAL_CLASS, vqREAL);
    vqLogical* answers = vqGetLogicals(result.get());

    fl::ustring path;  // one buffer for the whole walk
    quorin::gateway::forEachText(paths,
                                 [&](std::size_t i, const std::optional<fl::ustring_view>& text) {
                                     if (!text) return;  // a missing string is not absolute
                                     path.assign(*text);
                                     answers[i] = isAbsoluteText(path);
                                 });

    quorin::gateway::handOver(outputs, 0, std::move(result));
}
