#pragma once
// Calling a gateway the way the host does, reading fields of the struct it returns, and
// tables of calls. Arguments in a table are recipes (Make), so that a row can be copied
// and its owned arrays built afresh for each call.
#include "quorin/gateway/Gateway.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace zkfs::test::paths {

using Make = std::function<unique_vqarray_ptr()>;
// clang-format off
inline Make ch(fl::ustring text) { return [=] { return charRow(text); }; }
inline Make str(fl::ustring text) { return [=] { return stringScalar(text); }; }
inline Make strs(Dims dims, std::vector<StringElement> e) { return [=] { return stringArray(dims, e); }; }
inline Make num(double value) { return [=] { return doubleScalar(value); }; }
inline Make lg(bool value) { return [=] { return logicalScalar(value); }; }
// clang-format on
inline const Make kNull = [] { return unique_vqarray_ptr(); };
inline const Make kCharEmpty = [] { return charEmpty(); };
inline const Make kMatrix = [] { return charMatrix({u"ab", u"cd"}); };
inline Make cell(std::vector<Make> items) {
    return [=] {
        std::vector<unique_vqarray_ptr> v;
        for (const Make& m : items) v.push_back(m());
        const vqSize n = v.size();
        return cellArray({1, n}, std::move(v));
    };
}
inline Make st(std::vector<std::pair<std::string, Make>> named) {
    return [=] {
        FieldValues v;
        for (const auto& [name, m] : named) v.push_back(field(name, m()));
        return structScalarOf(std::move(v));
    };
}
inline ArgList build(const std::vector<Make>& args) {
    ArgList list;
    for (const Make& m : args) list.add(m());
    return list;
}

// The result taken out of the first output slot.
inline unique_vqarray_ptr call(GatewayFunction* gateway, const ArgList& args, int outCount = 1) {
    OutputSlots out;
    gateway(outCount, out.data(), args.count(), args.data());
    return std::move(out.slot(0));
}

inline std::vector<std::string> fieldNamesOf(const vqArray* s) {
    std::vector<std::string> names;
    for (int f = 0; f < vqGetNumberOfFields(s); ++f)
        names.emplace_back(vqGetFieldNameByNumber(s, f));
    return names;
}

// A field that must hold a 1x1 array of the class `is` accepts; null when it does not.
inline const vqArray* scalarField(const vqArray* s, std::size_t i, const char* name,
                                  bool (*is)(const vqArray*)) {
    const vqArray* v = vqGetField(s, i, name);
    if (v != nullptr && is(v) && dimsOf(v) == Dims{1, 1}) return v;
    ADD_FAILURE() << "field " << name << " of element " << i << " is no scalar of its kind";
    return nullptr;
}
inline StringElement stringField(const vqArray* s, std::size_t i, const char* name) {
    const vqArray* v =
        scalarField(s, i, name, [](const vqArray* a) { return vqGetClassID(a) == vqSTRING_CLASS; });
    return v == nullptr ? StringElement(u"<bad field>") : stringsOf(v).at(0);
}
inline double doubleField(const vqArray* s, std::size_t i, const char* name) {
    const vqArray* v = scalarField(s, i, name, &vqIsDouble);
    return v == nullptr ? -12345.0 : doublesOf(v).at(0);
}
inline bool logicalField(const vqArray* s, std::size_t i, const char* name) {
    const vqArray* v = scalarField(s, i, name, &vqIsLogical);
    return v != nullptr && logicalsOf(v).at(0);
}

// One call that must fail with `id` and exactly `expected` as its arguments.
struct ErrorRow {
    const char* what;
    std::vector<Make> args;
    const char* id;
    std::vector<resource_core::MessageArg> expected = {};
};
inline void expectErrors(GatewayFunction* gateway, const std::vector<ErrorRow>& rows) {
    for (const ErrorRow& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_IDENTIFIED_ERROR(call(gateway, build(row.args)), row.id, row.expected);
    }
}

}  // namespace zkfs::test::paths
