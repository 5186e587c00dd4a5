// mkSymlinkFcn: makes one local symbolic link to an existing target, creating the link's
// missing parent folders; an existing link is replaced only under "overwrite". It
// returns nothing: every failure is thrown.
#include "StorageErrors.hpp"
#include "quorin/gateway/Errors.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/fscore.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/filesystem/filesystem.hpp"
#include "foundation/storage/utility/URL.hpp"
#include "foundation/storage/vfs/vfs.hpp"

#include <optional>
#include <utility>

namespace {

namespace vfs = foundation::storage::vfs;
namespace core = quorin::io::filesystem::core;
using quorin::io::filesystem::quorin::create::StorageFailure;

enum class CheckMode { Target, Link };

bool isFileScheme(const fl::ustring& scheme) noexcept {
    // Schemes are case-insensitive (RFC 3986 section 3.1).
    constexpr char16_t kFile[] = u"file";
    if (scheme.size() != 4) return false;
    for (std::size_t i = 0; i < 4; ++i) {
        char16_t c = scheme[i];
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
        if (c != kFile[i]) return false;
    }
    return true;
}

// What checking the link path found there.
struct Checked {
    vfs::AbsoluteIRI location;
    bool replace = false;  // an existing link, to be replaced
};

// Checks one of the two paths and answers its normalised "file" IRI. A missing target,
// an existing link kept under "preserve" and a location outside the local file system
// are refused here; any other object at the link path is left for the link creation to
// report.
Checked checkPath(const fl::ustring& text, CheckMode mode, const fl::ustring& ruleValue) {
    const bool isIRI = vfs::hasIRIPrefix(text);
    // The local name the system is asked about: a file IRI's path, never its text.
    fl::ustring local;
    if (isIRI) {
        // Resolution takes a malformed IRI or a file IRI of another host as a location
        // naming nothing; here it is the invalid name of this one path, so it is read
        // before resolution, which would lose which path carried it.
        const vfs::AbsoluteIRI given(text);
        if (isFileScheme(given.getScheme())) local = vfs::fromAbsoluteIRI(given);
    } else {
        local = text;
        // Likewise a name the system cannot be given (one holding U+0000).
        try {
            (void)fl::filesystem::detail::native_bytes(text);
        } catch (const fl::filesystem::InvalidName&) {
            throw vfs::InvalidIRIException(text);
        }
    }
    const fl::ustring resolved = core::resolvePath(text, core::ResolvePathOptions{}).path;

    if (mode == CheckMode::Target && resolved.empty()) {
        // A link to nothing is never made.
        quorin::gateway::throwError<QUORIN::io::filesystem::symlink::TargetNotFound>(text);
    }
    bool replace = false;
    if (mode == CheckMode::Link && !local.empty()) {
        const unsigned type = fl::filesystem::symlink_status(local).type() &
                              fl::filesystem::file_status::file_type_mask;
        if (type == fl::filesystem::file_status::symlink_file) {
            if (ruleValue != u"overwrite") {
                quorin::gateway::throwError<QUORIN::io::filesystem::symlink::FileExists>(text);
            }
            replace = true;
        }
    }

    std::optional<vfs::AbsoluteIRI> location;
    if (isIRI) {
        location.emplace(resolved);
    } else {
        // Only a link that is not there yet has no resolved form.
        const fl::ustring native = fl::filesystem::detail::make_native_form(
            resolved.empty() ? fl::filesystem::absolute(text) : resolved, true);
        location.emplace(vfs::toAbsoluteIRI(u"file", native));
    }

    fl::ustring normalized = location->toString();
    foundation::storage::utility::normalizeURL(normalized);
    vfs::AbsoluteIRI result(normalized);
    if (!isFileScheme(result.getScheme())) {
        quorin::gateway::throwError<QUORIN::virtualfileio::localtoremote::notLocalSymlink>();
    }
    return {std::move(result), replace};
}

struct LinkFailure {
    StorageFailure failure;
    const fl::ustring* argument;  // the link or the target text, as the caller typed it
};

std::optional<LinkFailure> makeLink(const fl::ustring& link, const fl::ustring& target,
                                    const fl::ustring& ruleValue) {
    try {
        // The target first: a missing target is the error to show even when the link
        // path is also taken.
        checkPath(target, CheckMode::Target, ruleValue);
        const Checked checked = checkPath(link, CheckMode::Link, ruleValue);
        const fl::ustring linkPath = vfs::fromAbsoluteIRI(checked.location);
        core::createParentIfNeeded(checked.location,
                                   Hexfarrow::QuorinStorageSystem::GetStorageSystemReference());
        // The target goes in as typed, so a relative target stays relative to the link.
        if (checked.replace) {
            core::replaceSymbolicLink(target, linkPath, link);
        } else {
            core::createSymbolicLink(target, linkPath);
        }
        return std::nullopt;
    } catch (const vfs::Exception& e) {
        const bool atTarget = e.getLocation().toString().find(target) != fl::ustring::npos;
        return LinkFailure{
            quorin::io::filesystem::quorin::create::failureForErrorCode(e.getErrorCode()),
            atTarget ? &target : &link};
    } catch (const vfs::InvalidIRIException& e) {
        return LinkFailure{StorageFailure::NotValidURL,
                           e.getInvalidIRIString() == link ? &link : &target};
    } catch (const vfs::UnsupportedIRISchemeException&) {
        return LinkFailure{StorageFailure::InvalidIRI, &target};
    }
}

}  // namespace

void mkSymlinkFcn(int outCount, unique_vqarray_ptr* /*outputs*/, int argCount,
                  const vqArray* const* args) {
    using quorin::gateway::convertScalarText;
    quorin::gateway::checkCounts<&mkSymlinkFcn>(outCount, argCount);

    // Taken before the arguments are read, as every storage-backed built-in does; the
    // link's parents are made through a fresh reference later.
    [[maybe_unused]] const vfs::StorageSystemReference storage =
        Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    const fl::ustring link = convertScalarText(args[0], true);
    const fl::ustring target = convertScalarText(args[1], true);

    fl::ustring ruleName;
    fl::ustring ruleValue = u"preserve";
    if (argCount == 4) {
        ruleName = convertScalarText(args[2], true);
        ruleValue = core::validateAndCompleteReplacementRuleNameAndValue(
                        ruleName, convertScalarText(args[3], true))
                        .second;
    } else if (argCount == 3) {
        ruleName = convertScalarText(args[2], true);
        quorin::gateway::throwError<QUORIN::io::filesystem::common::NoValueSpecified>(ruleName);
    }

    const std::optional<LinkFailure> failure = makeLink(link, target, ruleValue);
    if (!failure) return;
    if (failure->failure == StorageFailure::NotValidURL) {
        // An IRI that does not parse names the offending file, not the URL syntax.
        quorin::gateway::throwError<QUORIN::io::filesystem::symlink::InvalidFilename>(
            *failure->argument);
    }
    quorin::io::filesystem::quorin::create::throwFailure(failure->failure, *failure->argument);
}

void createWindowsShortcutFcn(int /*outCount*/, unique_vqarray_ptr* /*outputs*/, int /*argCount*/,
                              const vqArray* const* /*args*/) {
    // Shortcut files are a Windows shell feature; POSIX systems have no such object.
    quorin::gateway::throwError<QUORIN::io::filesystem::symlink::NotSupportedOnPosix>();
}
