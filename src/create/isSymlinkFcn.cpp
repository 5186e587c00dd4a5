// isSymlinkFcn: per path, whether it is a symbolic link (a dangling one included) and, on
// request, the "file" IRI of what the link leads to. A path that cannot be examined
// answers false; only a wrong kind of argument is an error.
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/fscore.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/PathManagement/PathManagement.hpp"
#include "Hexfarrow/String/String.hpp"
#include "fl/filesystem/filesystem.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "matrix/matrix.hpp"

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace {

namespace vfs = foundation::storage::vfs;
namespace core = quorin::io::filesystem::core;
namespace fs = fl::filesystem;

struct Classification {
    bool isLink = false;
    fl::ustring text;  // the resolved path; empty for a link that cannot be followed
};

Classification classify(const fl::ustring& path) {
    core::ResolvePathResult resolved = core::resolvePath(path, core::ResolvePathOptions{});
    if (resolved.type == core::PathType::SymbolicLink) return {true, std::move(resolved.path)};
    if (resolved.type == core::PathType::None) {
        // Resolution follows links, so a dangling link or a loop looks like nothing;
        // the path layer tells such a name apart by the error it gives when followed.
        try {
            fs::status(path);
        } catch (const fs::SystemError& e) {
            if (e.getErrorCode() == core::platformSpecificErrorCode()) return {true, {}};
        }
    }
    return {false, std::move(resolved.path)};
}

// The "file" IRI text of the link's final target (or, given an IRI, its canonical local
// path).
fl::ustring targetText(const fl::ustring& path, const fl::ustring& resolved) {
    const fl::ustring start = resolved.empty() ? fs::absolute(path) : resolved;
    if (vfs::hasIRIPrefix(start)) {
        return fs::canonical(Hexfarrow::PathManagement::GetStringFromIRI(vfs::AbsoluteIRI(start)),
                             fl::ustring());
    }
    const fl::ustring native =
        fs::detail::make_native_form(fs::canonical(start, fl::ustring()), true);
    return vfs::toAbsoluteIRI(u"file", native).toString();
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

    quorin::gateway::forEachText(
        input, [&](std::size_t i, const std::optional<fl::ustring_view>& text) {
            if (!text) return;  // a missing element is no link
            const fl::ustring path(*text);
            Classification found;
            try {
                found = classify(path);
            } catch (...) {
                return;  // a path that cannot be examined is no link
            }
            if (!found.isLink) return;
            isLink[i] = true;
            if (!wantTargets) return;
            try {
                targetStrings->set(i, targetText(path, found.text));
            } catch (const fs::SystemError& e) {
                // The target cannot be followed: the link's own resolved text stands in.
                if (e.getErrorCode() == core::platformSpecificErrorCode()) {
                    targetStrings->set(i, std::move(found.text));
                }
            } catch (const fs::PathNotFound&) {
                // Still a link, whose target is simply not there.
            } catch (...) {
                isLink[i] = false;
            }
        });

    quorin::gateway::handOver(outputs, 0, std::move(links));
    if (wantTargets) quorin::gateway::handOver(outputs, 1, std::move(targets));
}
