// isSymlinkFcn: per path, whether it is a symbolic link (a dangling one included) and, on
// request, the "file" IRI of what the link leads to. A path that cannot be examined
// answers false; only a wrong kind of argument is an error.
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/fscore.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "matrix/matrix.hpp"

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace {

namespace vfs = foundation::storage::vfs;
namespace core = quorin::io::filesystem::core;

// The element's answer: whether it is a link and, when asked for and known, the target
// text: a "file" IRI for a path, the local path for a link named by IRI.
std::optional<fl::ustring> answerFor(const fl::ustring& path, bool wantTarget, bool& isLink) {
    const core::LinkInspection found = core::inspectLink(path, wantTarget);
    const bool byIRI = vfs::hasIRIPrefix(path);
    // Resolution names a link given by IRI only when it leads somewhere: a dangling one is
    // nothing there.
    isLink = found.isLink && (found.leads || !byIRI);
    if (!isLink || found.target.empty()) return std::nullopt;
    return byIRI ? found.target : vfs::toAbsoluteIRI(u"file", found.target).toString();
}

}  // namespace

void isSymlinkFcn(int outCount, unique_vqarray_ptr* outputs, int argCount,
                  const vqArray* const* args) {
    quorin::gateway::checkCounts<&isSymlinkFcn>(outCount, argCount);
    const vqArray* input = args[0];

    // Both results exist before the walk; the walk fills them in element order.
    const std::vector<vqSize> dims = quorin::gateway::textResultDims(input);
    unique_vqarray_ptr links = matrix::detail::do_create_numeric(dims, vqLOGICAL_CLASS, vqREAL);
    vqLogical* isLink = vqGetLogicals(links.get());
    // Targets are only ever written when they are handed out, so none are made otherwise.
    const bool wantTargets = outCount == 2;
    unique_vqarray_ptr targets;
    Hexfarrow::String::String* targetStrings = nullptr;
    if (wantTargets) {
        targets = Hexfarrow::String::createStringArray(dims.size(), dims.data());
        targetStrings = &Hexfarrow::String::getMutableString(targets.get());
    }

    quorin::gateway::forEachText(input, [&](std::size_t i,
                                            const std::optional<fl::ustring_view>& text) {
        if (!text) return;  // a missing element is no link
        try {
            bool link = false;
            std::optional<fl::ustring> target = answerFor(fl::ustring(*text), wantTargets, link);
            isLink[i] = link;
            if (target) targetStrings->set(i, std::move(*target));
        } catch (...) {
            isLink[i] = false;  // a path that cannot be examined is no link
        }
    });

    quorin::gateway::handOver(outputs, 0, std::move(links));
    if (wantTargets) quorin::gateway::handOver(outputs, 1, std::move(targets));
}
