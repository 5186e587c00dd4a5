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
#include <system_error>
#include <thread>
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

// From this many paths on, the second half's local paths are answered on a second thread:
// each answer is one or two status calls of its own and fills only its own elements.
// Paths given by IRI stay on the calling thread, with the storage system behind them.
constexpr std::size_t kSplitFrom = 4096;

}  // namespace

void isSymlinkFcn(int outCount, unique_vqarray_ptr* outputs, int argCount,
                  const vqArray* const* args) {
    quorin::gateway::checkCounts<&isSymlinkFcn>(outCount, argCount);
    const vqArray* input = args[0];

    // Both results exist before any path is tested.
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

    // Views into the input, which outlives the call.
    std::vector<std::optional<fl::ustring_view>> texts;
    quorin::gateway::forEachText(
        input, [&](std::size_t /*i*/, const std::optional<fl::ustring_view>& text) {
            texts.push_back(text);
        });
    std::vector<std::optional<fl::ustring>> found(wantTargets ? texts.size() : 0);
    // Element i answered; with `localOnly` a path given by IRI is left (false).
    const auto answer = [&](std::size_t i, bool localOnly) noexcept {
        if (!texts[i]) return true;  // a missing element is no link
        try {
            const fl::ustring path(*texts[i]);
            if (localOnly && vfs::hasIRIPrefix(path)) return false;
            bool link = false;
            std::optional<fl::ustring> target = answerFor(path, wantTargets, link);
            isLink[i] = link;
            if (target) found[i] = std::move(target);
        } catch (...) {
            isLink[i] = false;  // a path that cannot be examined is no link
        }
        return true;
    };

    const std::size_t half = texts.size() >= kSplitFrom ? texts.size() / 2 : texts.size();
    std::vector<unsigned char> left(texts.size() - half, 1);
    {
        std::thread second;
        try {
            second = std::thread([&]() noexcept {
                for (std::size_t i = half; i < texts.size(); ++i) {
                    left[i - half] = answer(i, true) ? 0 : 1;
                }
            });
        } catch (const std::system_error&) {
            // No second thread to be had: the calling thread answers them all.
        }
        for (std::size_t i = 0; i < half; ++i) answer(i, false);
        if (second.joinable()) second.join();
        for (std::size_t i = half; i < texts.size(); ++i) {
            if (left[i - half] != 0) answer(i, false);
        }
    }
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (found[i]) targetStrings->set(i, std::move(*found[i]));
    }

    quorin::gateway::handOver(outputs, 0, std::move(links));
    if (wantTargets) quorin::gateway::handOver(outputs, 1, std::move(targets));
}
