#pragma once
// The default display of a result, as the environment shows values (compact form):
//
//   NAME =
//     1×2 logical array
//       1   0
//
// Scalars show their value alone (a logical scalar adds the line "logical"); other
// arrays a size-and-class header, then their rows; pages of arrays of more than two
// dimensions are shown one by one as "(:,:,k) =". Strings are in double quotes,
// <missing> for a missing element, chars in single quotes; numbers print whole numbers
// as integers and others in the shortest form that reads back exactly (NaN, Inf, -Inf).
// A struct shows "struct with fields:" and its fields, aligned; a struct array its size
// and field names, then each element as NAME(k). A null value is "(not assigned)".
// Text is written as UTF-8.
#include "vq/vqArray.hpp"

#include <string>
#include <string_view>

namespace qfs {

std::string displayValue(std::string_view name, const vqArray* value);

// One number as the display writes it.
std::string formatNumber(double v);

}  // namespace qfs
