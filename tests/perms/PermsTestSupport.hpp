#pragma once
// Calling the permission gateways and reading their results in tests.
#include "quorin/gateway/Identifiers.hpp"
#include "zkfs/test/Arrays.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/ustring.hpp"
#include "vq/vqArray.hpp"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zkfs::test::perms {

// A 1x1 struct of logical fields, in the given order.
unique_vqarray_ptr request(const std::vector<std::pair<std::string, bool>>& entries);

// The field names and logical values of a 1x1 struct of logicals, in field order.
using Fields = std::vector<std::pair<std::string, bool>>;
Fields logicalFields(const vqArray* s);

// What the query reports, all nine names in order, for a file of mode 0640.
inline const Fields kMode0640Fields{
    {"Readable", true},   {"Writable", true},   {"UserExecute", false},
    {"GroupRead", true},  {"GroupWrite", false}, {"GroupExecute", false},
    {"OtherRead", false}, {"OtherWrite", false}, {"OtherExecute", false}};

// The rows of a failure struct ("Name", "Cause"), in row order.
struct FailureRow {
    fl::ustring name;
    fl::ustring cause;
};
std::vector<FailureRow> failureRows(const vqArray* s);

// getPerms_impl with one output; the result slot's content.
unique_vqarray_ptr getPerms(ArgList args);

// modifyPerms_impl with one output (failures as data).
unique_vqarray_ptr modifyPermsOut(const fl::ustring& location, const char16_t* type,
                                  unique_vqarray_ptr req, std::optional<fl::ustring> scope);
// modifyPerms_impl with no output (the first failure throws).
void modifyPermsNoOut(const fl::ustring& location, const char16_t* type, unique_vqarray_ptr req,
                      std::optional<fl::ustring> scope);

// The catalog text of a message in the current locale, as the library reports a cause.
template <class ID, class... A>
fl::ustring catalogText(const A&... args) {
    return fl::i18n::MessageCatalog::get_message(ID(args...), fl::i18n::ZkLocale::global());
}

fl::ustring u16(const std::string& utf8);

}  // namespace zkfs::test::perms
