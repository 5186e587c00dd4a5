#pragma once
// Calling a gateway the way the host does, and reading fields of the struct it returns.
#include "quorin/gateway/Gateway.hpp"
#include "zkfs/test/Arrays.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zkfs::test::paths {

// One output asked for; the result taken out of the first slot.
inline unique_vqarray_ptr call(GatewayFunction* gateway, const ArgList& args, int outCount = 1) {
    OutputSlots out;
    gateway(outCount, out.data(), args.count(), args.data());
    return std::move(out.slot(0));
}

// Field names of a struct array, in order.
inline std::vector<std::string> fieldNamesOf(const vqArray* s) {
    std::vector<std::string> names;
    for (int f = 0; f < vqGetNumberOfFields(s); ++f)
        names.emplace_back(vqGetFieldNameByNumber(s, f));
    return names;
}

// A string field that must be a 1x1 string array; nullopt for a missing element.
inline StringElement stringField(const vqArray* s, std::size_t i, const char* name) {
    const vqArray* v = vqGetField(s, i, name);
    if (v == nullptr) {
        ADD_FAILURE() << "field " << name << " of element " << i << " is empty";
        return fl::ustring(u"<empty field>");
    }
    EXPECT_EQ(dimsOf(v), (Dims{1, 1})) << name;
    const auto elements = stringsOf(v);
    return elements.at(0);
}

inline double doubleField(const vqArray* s, std::size_t i, const char* name) {
    const vqArray* v = vqGetField(s, i, name);
    if (v == nullptr || !vqIsDouble(v) || vqGetNumberOfElements(v) != 1) {
        ADD_FAILURE() << "field " << name << " of element " << i << " is not a double scalar";
        return -12345.0;
    }
    EXPECT_EQ(dimsOf(v), (Dims{1, 1})) << name;
    return doublesOf(v).at(0);
}

inline bool logicalField(const vqArray* s, std::size_t i, const char* name) {
    const vqArray* v = vqGetField(s, i, name);
    if (v == nullptr || !vqIsLogical(v) || vqGetNumberOfElements(v) != 1) {
        ADD_FAILURE() << "field " << name << " of element " << i << " is not a logical scalar";
        return false;
    }
    EXPECT_EQ(dimsOf(v), (Dims{1, 1})) << name;
    return logicalsOf(v).at(0);
}

}  // namespace zkfs::test::paths
