#pragma once
// Text arguments.
//
// Scalar text: a char row vector or 0x0 char, or a string scalar that is not missing.
// With requireRowVector false a char array of any shape is accepted as all its characters
// in column-major order. Refusals: "QUORIN:string:MustBeStringScalarOrCharacterVector",
// or "QUORIN:string:MissingNotSupported" for a missing string scalar. Text is taken as
// stored (no trimming, embedded NULs kept).
//
// Many texts: a string array (any shape, missing elements passed on as such), a char row
// vector or 0x0 char (one text), or a cell array whose elements must each be a char row
// vector or 0x0 char. A bad cell element stops the walk with
// "QUORIN:string:MustBeCellArrayOfStrings"; any other value raises
// "QUORIN:string:MustBeCharCellArrayOrString". Elements are visited in linear order.
#include "quorin/gateway/Errors.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/ustring.hpp"
#include "vq/vqArray.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace quorin::gateway {

// Borrows the argument's storage; lives as long as the argument.
struct ScalarTextView {
    const char16_t* data;
    std::size_t size;
    [[nodiscard]] fl::ustring_view view() const noexcept { return {data, size}; }
};

ScalarTextView readScalarText(const vqArray* arg, bool requireRowVector);
fl::ustring convertScalarText(const vqArray* arg, bool requireRowVector);
// The converter's own step, apart for its null check.
fl::ustring toUstring(const ScalarTextView& view);

// What the cell-element error carries: the localised input name, or (for file URLs)
// the 0-based linear index of the bad element as decimal 8-bit text.
enum class CellErrorArgument { InputName, ElementIndex };

// The kind of a many-text argument; anything else raises the library's own not-text
// error in place of the host's.
Hexfarrow::String::TextDispatch::Kind classifyText(const vqArray* arg);

// Element count of a many-text argument (1 for char), after its kind is checked.
std::size_t textElementCount(const vqArray* arg);

// The dimensions results take after a many-text argument: the argument's own, or 1x1 for
// a char text.
std::vector<vqSize> textResultDims(const vqArray* arg);

[[noreturn]] void throwBadCellElement(std::size_t index, CellErrorArgument argument);

// Calls f(index, text) for each element, text being std::nullopt for a missing string.
template <class F>
void forEachText(const vqArray* arg, F&& f,
                 CellErrorArgument cellError = CellErrorArgument::InputName) {
    using Hexfarrow::String::TextDispatch;
    switch (classifyText(arg)) {
        case TextDispatch::Kind::Char:
            f(std::size_t{0}, std::optional<fl::ustring_view>(
                                  fl::ustring_view(vqGetChars(arg), vqGetNumberOfElements(arg))));
            return;
        case TextDispatch::Kind::String: {
            const auto& strings = Hexfarrow::String::getString(arg);
            const std::size_t n = strings.numel();
            for (std::size_t i = 0; i < n; ++i) {
                const auto* rec = strings.get(i);
                f(i, rec == nullptr ? std::optional<fl::ustring_view>()
                                    : std::optional<fl::ustring_view>(
                                          fl::ustring_view(rec->text, rec->length)));
            }
            return;
        }
        case TextDispatch::Kind::Cell: {
            const std::size_t n = vqGetNumberOfElements(arg);
            for (std::size_t i = 0; i < n; ++i) {
                const vqArray* elem = vqGetCell(arg, i);
                if (!Hexfarrow::String::isCharRowOrEmpty(elem)) throwBadCellElement(i, cellError);
                f(i, std::optional<fl::ustring_view>(
                         fl::ustring_view(vqGetChars(elem), vqGetNumberOfElements(elem))));
            }
            return;
        }
    }
}

}  // namespace quorin::gateway
