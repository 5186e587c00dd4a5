#pragma once
// Building host arrays for the values a statement writes.
//
// Every function returns a new array owned by a unique_vqarray_ptr, or throws and leaves
// nothing behind (std::invalid_argument with a sentence saying what is wrong; the parser
// adds the column). Arguments are borrowed and never changed.
//
// Concatenation takes like values only: numbers of one class, logicals, strings
// (missing included), chars, cells, or structs with the same field names (the first
// piece's field order wins). A 0x0 piece is skipped, as the environment does. Pieces
// must have two dimensions; side by side they need equal row counts, stacked equal
// column counts.
#include "vq/vqArray.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace qfs {

// Dimensions as the user writes them: "1×2", "2×3×4".
std::string formatDims(const vqArray* a);

// A new array of a's class (and, for a struct, its fields) with the given dimensions;
// elements empty: zeros, "" strings, empty cell slots, empty fields.
unique_vqarray_ptr createLike(const vqArray* a, const std::vector<vqSize>& dims);

// Copies element `from` of src into element `to` of dst (same class; structs by field
// name). Cells and struct fields receive deep copies.
void copyElement(const vqArray* src, std::size_t from, vqArray* dst, std::size_t to);

// Concatenation side by side ([a b]) and stacked ([a; b]). Pieces are borrowed.
// `failedPiece` receives the index of the piece that broke a rule, for the column.
unique_vqarray_ptr concatHorizontal(const std::vector<const vqArray*>& pieces,
                                    std::size_t& failedPiece);
unique_vqarray_ptr concatVertical(const std::vector<const vqArray*>& pieces,
                                  std::size_t& failedPiece);

// reshape(X, d1, d2, ...): the same elements in the same order, new dimensions.
unique_vqarray_ptr reshapeArray(const vqArray* x, const std::vector<vqSize>& dims);
// repmat(X, r1, r2, ...): X tiled r1 times down, r2 times across, ...
unique_vqarray_ptr repmatArray(const vqArray* x, const std::vector<vqSize>& reps);
// logical(X): numbers and logicals; non-zero is true, NaN is refused.
unique_vqarray_ptr toLogical(const vqArray* x);
// string(X): numbers in decimal (whole numbers in full, others as the shortest text that
// reads back as the same double; NaN, Inf, -Inf), logicals as "true"/"false", a char row
// as one string, strings as they are; the same dimensions.
unique_vqarray_ptr toStringArray(const vqArray* x);

// One subscript of an index expression: every index along its dimension (":"), or the
// zero-based positions a one-based subscript names, in the subscript's own shape.
struct Subscript {
    bool all = false;
    std::vector<std::size_t> at;
    std::vector<vqSize> dims;  // the subscript value's dimensions
    std::size_t column = 0;
};

// A double array of positive whole numbers as a subscript; std::invalid_argument else.
Subscript subscriptOf(const vqArray* value);

// a(i) (one subscript: linear, column-major) or a(i, j) (rows, then columns with the
// higher dimensions folded in); braces take the one cell selected and give its content
// (an empty slot gives []). std::out_of_range for an index past the end, with a sentence.
unique_vqarray_ptr indexArray(const vqArray* a, const std::vector<Subscript>& subs, bool brace);

}  // namespace qfs
