#pragma once
// Trailing name-value options of a built-in, turned into a plain options record.
//
// Options come either as name-value pairs after the leading arguments or as one scalar
// struct whose field names are option names. Checks run in a fixed order and the first
// failure wins: the parity of the option arguments (before anything is converted), then
// pair by pair from the left the name's text conversion, the name's lookup, the value's
// check. Names match whole and case-sensitively; a name given twice keeps its last value.
//
// Errors (component "QUORIN:io:common:validation"):
//   OddNumberParameters   an odd number of option arguments, or one that is not a struct
//   ExpectedScalarStruct  the single option argument is a struct array of other than one element
//   UnknownParameter      a name (or field name) not in the table; argument: the name as given
//   InternalError         a value that is not a non-sparse logical scalar;
//                         argument: "Expected logical scalar"
//   MissingRequiredArg    a required name was not given; argument: the name
// A name that is not text fails with the text-argument errors. Nothing is returned on
// failure; the options record is the caller's to discard.
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/ResolvePath.hpp"

#include "fl/ustring.hpp"
#include "vq/vqArray.hpp"

#include <initializer_list>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace quorin::io::common::validation {

using SeenNames = std::unordered_set<fl::ustring>;

// Accepted names with the setter that validates and stores each one's value.
template <class Options>
class OptionTable {
public:
    using Setter = void (*)(const vqArray* value, Options& options);

    OptionTable(std::initializer_list<std::pair<const fl::ustring, Setter>> setters,
                std::initializer_list<fl::ustring> required = {})
        : setters_(setters), required_(required) {}

    // Null when the name is not an option of this table.
    [[nodiscard]] Setter find(const fl::ustring& name) const {
        const auto it = setters_.find(name);
        return it == setters_.end() ? nullptr : it->second;
    }
    [[nodiscard]] const SeenNames& required() const noexcept { return required_; }

private:
    std::unordered_map<fl::ustring, Setter> setters_;
    SeenNames required_;
};

// The bool held by a non-sparse 1x1 logical; InternalError for anything else (null too).
bool getLogicalScalar(const vqArray* value);

[[noreturn]] void throwUnknownParameter(const fl::ustring& name);
[[noreturn]] void throwExpectedScalarStruct();
[[noreturn]] void throwOddNumberParameters();
[[noreturn]] void throwMissingRequiredArg(const fl::ustring& name);

// Runs the setter of `name` on `value`, then records the name as seen.
template <class Options>
void parseNameValuePair(const OptionTable<Options>& table, const fl::ustring& name,
                        const vqArray* value, Options& options, SeenNames& seen) {
    const auto setter = table.find(name);
    if (setter == nullptr) throwUnknownParameter(name);
    setter(value, options);
    seen.insert(name);
}

// The field names of a scalar struct, UTF-16, with the field values of its one element.
std::vector<std::pair<fl::ustring, const vqArray*>> scalarStructFields(const vqArray* structArray);

// One scalar struct: each field, in the struct's own order, as a name-value pair.
template <class Options>
void parseOptionStruct(const OptionTable<Options>& table, const vqArray* structArray,
                       Options& options, SeenNames& seen) {
    for (const auto& [name, value] : scalarStructFields(structArray)) {
        parseNameValuePair(table, name, value, options, seen);
    }
}

template <class Options>
void checkRequiredArgs(const OptionTable<Options>& table, const SeenNames& seen) {
    for (const auto& name : table.required()) {
        if (!seen.contains(name)) throwMissingRequiredArg(name);
    }
}

// The option arguments args[first] .. args[argCount - 1] into `options`.
template <class Options>
void parseOptionArguments(const OptionTable<Options>& table, const vqArray* const* args, int first,
                          int argCount, Options& options) {
    const int optionCount = argCount - first;
    SeenNames seen;
    if (optionCount <= 0) {
        // Nothing given: only the required names can fail.
    } else if (optionCount == 1) {
        // A lone option argument is either the struct form or a name without a value.
        const vqArray* only = args[first];
        if (only == nullptr || !vqIsStruct(only)) throwOddNumberParameters();
        parseOptionStruct(table, only, options, seen);
    } else {
        // Parity first, so a missing value is reported before any name is looked at.
        if (optionCount % 2 != 0) throwOddNumberParameters();
        for (int i = first; i < argCount; i += 2) {
            const fl::ustring name = quorin::gateway::convertScalarText(args[i], true);
            parseNameValuePair(table, name, args[i + 1], options, seen);
        }
    }
    checkRequiredArgs(table, seen);
}

// The options that follow args[0]: all false when there are none.
quorin::io::filesystem::core::ResolvePathOptions parseResolvePathOptions(const vqArray* const* args,
                                                                         int argCount);

}  // namespace quorin::io::common::validation
