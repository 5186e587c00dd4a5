#pragma once
// The --json encodings, one object per statement, one line each.
//
// Typed (--json): {"outputs": [VALUE, ...]} or
//   {"error": {"identifier": "...", "message": "...", "arguments": [ARG, ...]}}
// VALUE is {"class": C, "size": [d1, d2, ...], "value": V} with V in column-major order:
// numbers (NaN, Inf and -Inf as the strings "NaN", "Inf", "-Inf"), true/false, one
// string for a char array, strings with null for a missing element, VALUEs with null for
// an empty cell slot; a struct adds "fields" (names in order) and V holds one object per
// element (null for an empty field).
//
// Plain (--json=plain): {"NAME": value, ...}, the output names as keys. A 1-by-1 value is
// a scalar (a 1-by-1 struct an object, a missing string null); a char row is one string;
// a vector is a list, a matrix a list of rows, an array of more dimensions a list of its
// pages (each a matrix); a cell is always a list; an empty cell slot or field is null.
//
// help and who answer {"help": "TEXT"} and {"who": [NAME, ...]} in both forms.
//
// Both are written by streaming into a buffer, never through a document. Text is UTF-8;
// a byte that is not part of valid UTF-8 (held by the host as the code unit U+DC00 + byte)
// is written as that escaped code unit, "\udcff", which Python's json with
// surrogateescape turns back into the same byte. Any other lone surrogate is U+FFFD.
//
// toJson builds the typed form as a document for the tests, text kept as its bytes.
#include "resource_core/MessageArg.hpp"
#include "vq/vqArray.hpp"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace qfs {

using Json = nlohmann::ordered_json;

// A null value (an output slot left empty) is JSON null.
Json toJson(const vqArray* value);

Json errorJson(const std::string& identifier, const std::string& message,
               const std::vector<resource_core::MessageArg>& arguments);

// A document as one line, without the newline, strings escaped as the writers do.
std::string jsonLine(const Json& object);

// Appends one value in either form.
void writeTyped(std::string& out, const vqArray* value);
void writePlain(std::string& out, const vqArray* value);
// Appends UTF-8 text (bytes that are not UTF-8 escaped as above) as a JSON string.
void writeString(std::string& out, std::string_view utf8);

}  // namespace qfs
