#pragma once
// The --json encoding: one object per statement, one line each.
//
//   {"outputs": [VALUE, ...]}
//   {"error": {"identifier": "...", "message": "...", "arguments": [ARG, ...]}}
//
// VALUE is {"class": C, "size": [d1, d2, ...], "value": V} with V in column-major order:
// numbers (NaN, Inf and -Inf as the strings "NaN", "Inf", "-Inf"), true/false, one
// string for a char array, strings with null for a missing element, VALUEs with null for
// an empty cell slot; a struct adds "fields" (names in order) and V holds one object per
// element (null for an empty field). Key order is fixed (ordered_json).
//
// Text that is not valid UTF-8 (a file name's undecodable bytes) is written with U+FFFD
// in their place; jsonLine never throws for it.
#include "resource_core/MessageArg.hpp"
#include "vq/vqArray.hpp"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace qfs {

using Json = nlohmann::ordered_json;

// A null value (an output slot left empty) is JSON null.
Json toJson(const vqArray* value);

Json errorJson(const std::string& identifier, const std::string& message,
               const std::vector<resource_core::MessageArg>& arguments);

// The object as one line, without the newline.
std::string jsonLine(const Json& object);

}  // namespace qfs
