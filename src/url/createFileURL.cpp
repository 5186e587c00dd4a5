// createFileURL: "file" URLs for local paths, one per input text, in the input's shape.
#include "quorin/gateway/Errors.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/filesystem/filesystem.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace quorin::io::filesystem::quorin {
namespace {

namespace vfs = foundation::storage::vfs;

// The URL of one path. `path` is scratch space; `given` is the text as the user wrote it,
// which is what the error names (not the native form, which the user never saw).
fl::ustring fileURLOf(fl::ustring_view given, fl::ustring& path) {
    std::optional<vfs::AbsoluteIRI> iri;
    path.assign(given);
    try {
        // The empty path skips the native form: it stays the IRI that names no file.
        if (!path.empty()) path = fl::filesystem::detail::make_native_form(path, true);
        iri.emplace(vfs::toAbsoluteIRI(u"file", path));
    } catch (...) {
        // The storage layer's own exception says less than ours: it is not passed on.
    }
    if (!iri) gateway::throwError<QUORIN::io::common::file::InvalidFileURLPath>(fl::ustring(given));
    return iri->toString();
}

}  // namespace

void createFileURL(int outCount, unique_vqarray_ptr* outputs, int argCount,
                   const vqArray* const* args) {
    gateway::checkCounts<&createFileURL>(outCount, argCount);
    // Only the first argument is read; any others are accepted and ignored.
    const vqArray* paths = args[0];

    const std::vector<vqSize> dims = gateway::textResultDims(paths);
    // A plain string object until every URL is made: an error half-way frees it with
    // nothing handed to the host.
    Hexfarrow::String::StringPtr urls = Hexfarrow::String::make_String(dims.size(), dims.data());

    fl::ustring scratch;
    gateway::forEachText(
        paths,
        [&](std::size_t i, const std::optional<fl::ustring_view>& text) {
            if (!text) gateway::throwError<QUORIN::string::MissingNotSupported>();
            urls->set(i, fileURLOf(*text, scratch));
        },
        // The caller of this built-in is told which cell is wrong, by its 0-based index.
        gateway::CellErrorArgument::ElementIndex);

    gateway::handOver(outputs, 0, Hexfarrow::String::createStringArray(std::move(urls)));
}

}  // namespace quorin::io::filesystem::quorin
