#include "quorin/gateway/Text.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"

#include <stdexcept>
#include <string>

namespace quorin::gateway {

using Hexfarrow::String::isCharRowOrEmpty;

ScalarTextView readScalarText(const vqArray* arg, bool requireRowVector) {
    if (arg == nullptr) throwError<QUORIN::string::MustBeStringScalarOrCharacterVector>();
    if (vqIsChar(arg)) {
        if (isCharRowOrEmpty(arg) || !requireRowVector) {
            return {vqGetChars(arg), vqGetNumberOfElements(arg)};
        }
        throwError<QUORIN::string::MustBeStringScalarOrCharacterVector>();
    }
    if (Hexfarrow::String::isString(arg)) {
        if (!vqIsScalar(arg)) throwError<QUORIN::string::MustBeStringScalarOrCharacterVector>();
        const auto* rec = Hexfarrow::String::getString(arg).get(0);
        if (rec == nullptr) throwError<QUORIN::string::MissingNotSupported>();
        return {rec->text, rec->length};
    }
    throwError<QUORIN::string::MustBeStringScalarOrCharacterVector>();
}

fl::ustring toUstring(const ScalarTextView& view) {
    if (view.data == nullptr && view.size != 0) {
        throw std::logic_error("basic_string: construction from null is not valid");
    }
    return view.size == 0 ? fl::ustring() : fl::ustring(view.data, view.size);
}

fl::ustring convertScalarText(const vqArray* arg, bool requireRowVector) {
    return toUstring(readScalarText(arg, requireRowVector));
}

fl::ustring inputPathName() {
    return fl::i18n::MessageCatalog::get_message(QUORIN::FileUtils::inputPath(),
                                                 fl::i18n::ZkLocale::global());
}

void throwNotTextReplacement() {
    throwError<QUORIN::string::MustBeCharCellArrayOrString>(inputPathName());
}

void throwBadCellElement(std::size_t index, CellErrorArgument argument) {
    if (argument == CellErrorArgument::ElementIndex) {
        throwError<QUORIN::string::MustBeCellArrayOfStrings>(std::to_string(index));
    }
    throwError<QUORIN::string::MustBeCellArrayOfStrings>(inputPathName());
}

Hexfarrow::String::TextDispatch::Kind classifyText(const vqArray* arg) {
    using Hexfarrow::String::TextDispatch;
    bool notText = false;
    TextDispatch::Kind kind{};
    try {
        kind = TextDispatch::classify(arg);
    } catch (const TextDispatch::NotText&) {
        notText = true;
    }
    // Replaced outside the handler, once the host's exception is gone.
    if (notText) throwNotTextReplacement();
    return kind;
}

std::size_t textElementCount(const vqArray* arg) {
    using Hexfarrow::String::TextDispatch;
    return classifyText(arg) == TextDispatch::Kind::Char ? 1 : vqGetNumberOfElements(arg);
}

std::vector<vqSize> textResultDims(const vqArray* arg) {
    if (textElementCount(arg) == 1 && vqIsChar(arg)) return {1, 1};
    return {vqGetDimensions(arg), vqGetDimensions(arg) + vqGetNumberOfDimensions(arg)};
}

}  // namespace quorin::gateway
