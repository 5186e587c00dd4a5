#include "NameValueOptions.hpp"
#include "quorin/gateway/Errors.hpp"

#include "fl/i18n/unicode.hpp"

#include <string>

namespace quorin::io::common::validation {

namespace ids = QUORIN::io::common::validation;
using quorin::gateway::throwError;
using quorin::io::filesystem::core::ResolvePathOptions;

bool getLogicalScalar(const vqArray* value) {
    if (value != nullptr && vqIsLogical(value) && vqGetNumberOfDimensions(value) == 2 &&
        vqGetNumberOfElements(value) == 1 && !vqIsSparse(value)) {
        return vqGetLogicals(value)[0];
    }
    // The host reports every bad option value under this mnemonic; users and scripts
    // match on it, so it stays.
    const std::string kind = "logical";
    const std::string shape = "scalar";
    throwError<ids::InternalError>("Expected " + kind + " " + shape);
}

void throwUnknownParameter(const fl::ustring& name) { throwError<ids::UnknownParameter>(name); }
void throwExpectedScalarStruct() { throwError<ids::ExpectedScalarStruct>(); }
void throwOddNumberParameters() { throwError<ids::OddNumberParameters>(); }
void throwMissingRequiredArg(const fl::ustring& name) { throwError<ids::MissingRequiredArg>(name); }

std::vector<std::pair<fl::ustring, const vqArray*>> scalarStructFields(const vqArray* structArray) {
    if (!vqIsScalar(structArray)) throwExpectedScalarStruct();
    const int count = vqGetNumberOfFields(structArray);
    std::vector<std::pair<fl::ustring, const vqArray*>> result;
    result.reserve(static_cast<std::size_t>(count));
    for (int f = 0; f < count; ++f) {
        result.emplace_back(fl::i18n::to_ustring(vqGetFieldNameByNumber(structArray, f)),
                            vqGetFieldByNumber(structArray, 0, f));
    }
    return result;
}

namespace {

void setResolveSymbolicLinks(const vqArray* value, ResolvePathOptions& options) {
    options.ResolveSymbolicLinks = getLogicalScalar(value);
}
void setLocalPathFromFileScheme(const vqArray* value, ResolvePathOptions& options) {
    options.LocalPathFromFileScheme = getLogicalScalar(value);
}
void setCaseCorrectAndResolveOnWindows(const vqArray* value, ResolvePathOptions& options) {
    options.CaseCorrectAndResolveOnWindows = getLogicalScalar(value);
}

}  // namespace

ResolvePathOptions parseResolvePathOptions(const vqArray* const* args, int argCount) {
    ResolvePathOptions options;
    if (argCount < 2) return options;
    const OptionTable<ResolvePathOptions> table{
        {u"ResolveSymbolicLinks", &setResolveSymbolicLinks},
        {u"LocalPathFromFileScheme", &setLocalPathFromFileScheme},
        {u"CaseCorrectAndResolveOnWindows", &setCaseCorrectAndResolveOnWindows},
    };
    parseOptionArguments(table, args, 1, argCount, options);
    return options;
}

}  // namespace quorin::io::common::validation
