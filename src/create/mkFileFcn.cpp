// mkFileFcn: makes one empty file, with its missing parent folders, at a local path or a
// storage location. Storage failures are thrown when no result is asked for and reported
// as (status, message, identifier) otherwise; argument and option errors always throw.
#include "StorageErrors.hpp"
#include "quorin/gateway/Errors.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/fscore.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/utility/URL.hpp"
#include "foundation/storage/vfs/vfs.hpp"
#include "matrix/matrix.hpp"

#include <exception>
#include <optional>

namespace {

namespace vfs = foundation::storage::vfs;
namespace core = quorin::io::filesystem::core;
using quorin::io::filesystem::quorin::create::StorageFailure;

unique_vqarray_ptr logicalScalar(bool value) {
    auto result = matrix::detail::do_create_numeric({1, 1}, vqLOGICAL_CLASS, vqREAL);
    vqGetLogicals(result.get())[0] = value;
    return result;
}

// Prepares `path` in place (the prepared form is what a thrown error names) and makes the
// file. The storage failures that the built-in translates come back as a value; anything
// else propagates.
std::optional<StorageFailure> makeEmptyFile(fl::ustring& path, const fl::ustring& ruleValue,
                                            const vfs::StorageSystemReference& storage) {
    try {
        core::createEmptyFile(path, ruleValue == u"overwrite", storage);
        return std::nullopt;
    } catch (const vfs::Exception& e) {
        return quorin::io::filesystem::quorin::create::failureForErrorCode(e.getErrorCode());
    } catch (const vfs::InvalidIRIException&) {
        return StorageFailure::NotValidURL;
    } catch (const vfs::UnsupportedIRISchemeException&) {
        return StorageFailure::InvalidIRI;
    }
}

}  // namespace

void mkFileFcn(int outCount, unique_vqarray_ptr* outputs, int argCount,
               const vqArray* const* args) {
    using quorin::gateway::convertScalarText;
    using quorin::gateway::handOver;
    quorin::gateway::checkCounts<&mkFileFcn>(outCount, argCount);

    const vfs::StorageSystemReference storage =
        Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    fl::ustring path = convertScalarText(args[0], true);

    // A lone status must be there even when an error that is never reported as data
    // (an option error, say) leaves the call.
    if (outCount == 1) handOver(outputs, 0, logicalScalar(false));

    fl::ustring ruleName;
    fl::ustring ruleValue;
    if (argCount == 3) {
        ruleName = convertScalarText(args[1], true);
        ruleValue = convertScalarText(args[2], true);
        core::validateReplacementRuleName(ruleName, ruleValue);
    } else if (argCount == 2) {
        // The name is deliberately left unread: the message names no option.
        quorin::gateway::throwError<QUORIN::io::filesystem::common::NoValueSpecified>(ruleName);
    }

    const std::optional<StorageFailure> failure = makeEmptyFile(path, ruleValue, storage);

    if (failure && outCount == 0) {
        quorin::io::filesystem::quorin::create::throwFailure(*failure, path);
    }
    if (outCount == 0) return;

    // Every result is built before any is handed over, so a failure while building
    // leaves the slots as they were (apart from the status placed above).
    unique_vqarray_ptr status;
    unique_vqarray_ptr message;
    unique_vqarray_ptr identifier;
    if (!failure) {
        status = logicalScalar(true);
        if (outCount >= 2) message = Hexfarrow::String::createStringArray(fl::ustring());
        if (outCount >= 3) identifier = Hexfarrow::String::createStringArray(fl::ustring());
    } else {
        // The reported message names the location as a person reads it, escapes decoded.
        fl::ustring readable = path;
        foundation::storage::utility::decodeURL(readable, true);
        const std::exception_ptr error =
            quorin::io::filesystem::quorin::create::captureFailure(*failure, readable);
        status = logicalScalar(false);
        if (outCount >= 2) {
            message =
                Hexfarrow::String::createStringArray(core::detail::GetUnicodeMessageTxt(error));
        }
        if (outCount >= 3) {
            identifier = Hexfarrow::String::createStringArray(
                fl::i18n::to_ustring(core::detail::GetID(error)));
        }
    }
    handOver(outputs, 0, std::move(status));
    if (message) handOver(outputs, 1, std::move(message));
    if (identifier) handOver(outputs, 2, std::move(identifier));
}
