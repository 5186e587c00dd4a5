#pragma once
// Builders and readers of host arrays for tests.
//
// Every builder returns an owned array (unique_vqarray_ptr). Data is given in the host's
// storage order (column-major) unless a builder says otherwise. A builder refuses
// inconsistent input (a data length that does not match the dimensions, ragged rows)
// with std::invalid_argument, so a mistake in a test never builds a silently wrong value.
//
// Cells and structs take ownership of the arrays handed to them; a null element is an
// empty slot.
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fl/ustring.hpp"
#include "vq/vqArray.hpp"

namespace zkfs::test {

using Dims = std::vector<vqSize>;

// --- char ----------------------------------------------------------------------------
// A 1xN char row; the empty text gives 1x0 (not 0x0: use charEmpty for that).
unique_vqarray_ptr charRow(fl::ustring_view text);
// The 0x0 char.
unique_vqarray_ptr charEmpty();
// A char array of any dimensions (3-D included) holding `data` in column-major order.
unique_vqarray_ptr charArray(const Dims& dims, fl::ustring_view data);
// A char matrix from its rows, each of the same length (stored column-major).
unique_vqarray_ptr charMatrix(std::initializer_list<fl::ustring_view> rows);

// --- numeric and logical ---------------------------------------------------------------
unique_vqarray_ptr doubleScalar(double value);
// A zero-filled real array of any numeric class (int8 ... uint64, single, double).
unique_vqarray_ptr numericArray(vqClassID cls, const Dims& dims);
unique_vqarray_ptr logicalScalar(bool value);
unique_vqarray_ptr logicalArray(const Dims& dims, const std::vector<bool>& values);
// Marks a logical or double array sparse and hands it back.
unique_vqarray_ptr sparse(unique_vqarray_ptr array);

// --- strings ------------------------------------------------------------------------
using StringElement = std::optional<fl::ustring>;  // nullopt: a missing element
unique_vqarray_ptr stringScalar(fl::ustring_view text);
unique_vqarray_ptr missingString();
unique_vqarray_ptr stringArray(const Dims& dims, const std::vector<StringElement>& elements);

// --- cells and structs --------------------------------------------------------------
// Elements in column-major order; a null element stays an empty slot.
unique_vqarray_ptr cellArray(const Dims& dims, std::vector<unique_vqarray_ptr> elements);
// A 1xN cell of the given elements.
template <class... A>
unique_vqarray_ptr cellRow(A&&... elements) {
    std::vector<unique_vqarray_ptr> v;
    v.reserve(sizeof...(A));
    (v.push_back(std::forward<A>(elements)), ...);
    const vqSize n = v.size();
    return cellArray({1, n}, std::move(v));
}

// One struct element: field name and value (null: an empty field). Build it with
// fields(field("A", ...), field("B", nullptr)): owned values cannot travel through an
// initializer list.
using FieldValue = std::pair<std::string, unique_vqarray_ptr>;
using FieldValues = std::vector<FieldValue>;
inline FieldValue field(std::string name, unique_vqarray_ptr value) {
    return {std::move(name), std::move(value)};
}
template <class... F>
FieldValues fields(F&&... values) {
    FieldValues v;
    v.reserve(sizeof...(F));
    (v.push_back(std::forward<F>(values)), ...);
    return v;
}
// A 1x1 struct with these fields in this order.
unique_vqarray_ptr structScalarOf(FieldValues values);
template <class... F>
unique_vqarray_ptr structScalar(F&&... values) {
    return structScalarOf(fields(std::forward<F>(values)...));
}
// A struct array; `elements` in column-major order, each naming exactly `names`'s
// fields (in any order).
unique_vqarray_ptr structArray(const Dims& dims, const std::vector<std::string>& names,
                               std::vector<FieldValues> elements);

// --- readers ------------------------------------------------------------------------
Dims dimsOf(const vqArray* a);
// All characters of a char array, in storage order.
fl::ustring charsOf(const vqArray* a);
// Elements of a string array, nullopt for missing ones.
std::vector<StringElement> stringsOf(const vqArray* a);
std::vector<bool> logicalsOf(const vqArray* a);
std::vector<double> doublesOf(const vqArray* a);

// An argument list as a gateway receives it: owned arrays, plus null arguments.
class ArgList {
public:
    ArgList() = default;
    template <class... A>
    explicit ArgList(A&&... arrays) {
        (add(std::forward<A>(arrays)), ...);
    }
    ArgList& add(unique_vqarray_ptr array);
    ArgList& add(std::nullptr_t);  // a null argument
    [[nodiscard]] int count() const noexcept { return static_cast<int>(pointers_.size()); }
    [[nodiscard]] const vqArray* const* data() const noexcept { return pointers_.data(); }
    [[nodiscard]] const vqArray* operator[](std::size_t i) const { return pointers_.at(i); }

private:
    std::vector<unique_vqarray_ptr> owned_;
    std::vector<const vqArray*> pointers_;
};

// Result slots for a gateway call; at least one slot, as the host provides.
class OutputSlots {
public:
    explicit OutputSlots(std::size_t count = 1);
    [[nodiscard]] unique_vqarray_ptr* data() noexcept { return slots_.data(); }
    [[nodiscard]] const vqArray* operator[](std::size_t i) const { return slots_.at(i).get(); }
    [[nodiscard]] unique_vqarray_ptr& slot(std::size_t i) { return slots_.at(i); }

private:
    std::vector<unique_vqarray_ptr> slots_;
};

}  // namespace zkfs::test
