#include "PermsTestSupport.hpp"

#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <stdexcept>

namespace zkfs::test::perms {

fl::ustring u16(const std::string& utf8) { return fl::i18n::to_ustring(utf8); }

unique_vqarray_ptr request(const std::vector<std::pair<std::string, bool>>& entries) {
    FieldValues values;
    for (const auto& [name, value] : entries) values.push_back(field(name, logicalScalar(value)));
    return structScalarOf(std::move(values));
}

std::vector<std::pair<std::string, bool>> logicalFields(const vqArray* s) {
    if (s == nullptr || !vqIsStruct(s) || vqGetNumberOfElements(s) != 1) {
        throw std::invalid_argument("not a 1x1 struct");
    }
    std::vector<std::pair<std::string, bool>> out;
    for (int f = 0; f < vqGetNumberOfFields(s); ++f) {
        const vqArray* value = vqGetFieldByNumber(s, 0, f);
        if (value == nullptr || !vqIsLogical(value) || vqGetNumberOfElements(value) != 1) {
            throw std::invalid_argument("field is not a logical scalar");
        }
        out.emplace_back(vqGetFieldNameByNumber(s, f), logicalsOf(value).at(0));
    }
    return out;
}

std::vector<FailureRow> failureRows(const vqArray* s) {
    if (s == nullptr || !vqIsStruct(s) || vqGetNumberOfFields(s) != 2 ||
        std::string(vqGetFieldNameByNumber(s, 0)) != "Name" ||
        std::string(vqGetFieldNameByNumber(s, 1)) != "Cause") {
        throw std::invalid_argument("not a failure struct");
    }
    std::vector<FailureRow> rows;
    for (std::size_t i = 0; i < vqGetNumberOfElements(s); ++i) {
        const auto name = stringsOf(vqGetField(s, i, "Name"));
        const auto cause = stringsOf(vqGetField(s, i, "Cause"));
        if (name.size() != 1 || cause.size() != 1 || !name[0] || !cause[0]) {
            throw std::invalid_argument("failure fields must be string scalars");
        }
        rows.push_back({*name[0], *cause[0]});
    }
    return rows;
}

unique_vqarray_ptr getPerms(ArgList args) {
    OutputSlots out;
    getPerms_impl(1, out.data(), args.count(), args.data());
    return std::move(out.slot(0));
}

namespace {
ArgList modifyArgs(const fl::ustring& location, const char16_t* type, unique_vqarray_ptr req,
                   const std::optional<fl::ustring>& scope) {
    ArgList args(stringScalar(location), charRow(type), std::move(req));
    if (scope) {
        args.add(logicalScalar(false));  // the wrapper's own argument, never read
        args.add(charRow(*scope));
    }
    return args;
}
}  // namespace

unique_vqarray_ptr modifyPermsOut(const fl::ustring& location, const char16_t* type,
                                  unique_vqarray_ptr req, std::optional<fl::ustring> scope) {
    ArgList args = modifyArgs(location, type, std::move(req), scope);
    OutputSlots out;
    modifyPerms_impl(1, out.data(), args.count(), args.data());
    return std::move(out.slot(0));
}

void modifyPermsNoOut(const fl::ustring& location, const char16_t* type, unique_vqarray_ptr req,
                      std::optional<fl::ustring> scope) {
    ArgList args = modifyArgs(location, type, std::move(req), scope);
    OutputSlots out;
    modifyPerms_impl(0, out.data(), args.count(), args.data());
    if (out[0] != nullptr) throw std::logic_error("no output was asked for, yet one was set");
}

}  // namespace zkfs::test::perms
