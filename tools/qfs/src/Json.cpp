#include "qfs/Json.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <variant>

namespace qfs {
namespace {

template <class T>
T load(const vqArray* a, std::size_t k) {
    T v{};
    std::memcpy(&v, static_cast<const char*>(vqGetData(a)) + k * sizeof(T), sizeof(T));
    return v;
}

Json number(double v) {
    if (std::isnan(v)) return "NaN";
    if (std::isinf(v)) return v > 0 ? "Inf" : "-Inf";
    return v;
}

Json element(const vqArray* a, std::size_t k) {
    switch (vqGetClassID(a)) {
        case vqDOUBLE_CLASS:
            return number(vqGetPr(a)[k]);
        case vqSINGLE_CLASS:
            return number(static_cast<double>(load<float>(a, k)));
        case vqLOGICAL_CLASS:
            return static_cast<bool>(vqGetLogicals(a)[k]);
        case vqINT8_CLASS:
            return load<std::int8_t>(a, k);
        case vqUINT8_CLASS:
            return load<std::uint8_t>(a, k);
        case vqINT16_CLASS:
            return load<std::int16_t>(a, k);
        case vqUINT16_CLASS:
            return load<std::uint16_t>(a, k);
        case vqINT32_CLASS:
            return load<std::int32_t>(a, k);
        case vqUINT32_CLASS:
            return load<std::uint32_t>(a, k);
        case vqINT64_CLASS:
            return load<std::int64_t>(a, k);
        case vqUINT64_CLASS:
            return load<std::uint64_t>(a, k);
        case vqSTRING_CLASS: {
            const auto* rec = Hexfarrow::String::getString(a).get(k);
            if (rec == nullptr) return nullptr;
            return fl::i18n::to_utf8(fl::ustring_view(rec->text, rec->length));
        }
        case vqCELL_CLASS:
            return toJson(vqGetCell(a, k));
        default:
            return nullptr;
    }
}

}  // namespace

Json toJson(const vqArray* value) {
    if (value == nullptr) return nullptr;
    Json out = Json::object();
    out["class"] = vqGetClassName(value);
    Json size = Json::array();
    const std::size_t nd = vqGetNumberOfDimensions(value);
    for (std::size_t d = 0; d < nd; ++d) size.push_back(vqGetDimensions(value)[d]);
    out["size"] = std::move(size);
    const std::size_t count = vqGetNumberOfElements(value);

    if (vqIsChar(value)) {
        out["value"] = fl::i18n::to_utf8(fl::ustring_view(vqGetChars(value), count));
        return out;
    }
    if (vqIsStruct(value)) {
        const auto names = value->get_struct_field_names();
        out["fields"] = names;
        Json elements = Json::array();
        for (std::size_t k = 0; k < count; ++k) {
            Json e = Json::object();
            for (std::size_t f = 0; f < names.size(); ++f) {
                e[names[f]] = toJson(vqGetFieldByNumber(value, k, static_cast<int>(f)));
            }
            elements.push_back(std::move(e));
        }
        out["value"] = std::move(elements);
        return out;
    }
    Json elements = Json::array();
    for (std::size_t k = 0; k < count; ++k) elements.push_back(element(value, k));
    out["value"] = std::move(elements);
    return out;
}

Json errorJson(const std::string& identifier, const std::string& message,
               const std::vector<resource_core::MessageArg>& arguments) {
    Json args = Json::array();
    for (const auto& a : arguments) {
        std::visit(
            [&args](const auto& v) {
                using T = std::decay_t<decltype(v)>;
                if constexpr (std::is_same_v<T, fl::ustring>) {
                    args.push_back(fl::i18n::to_utf8(v));
                } else {
                    args.push_back(v);
                }
            },
            a);
    }
    Json error = Json::object();
    error["identifier"] = identifier;
    error["message"] = message;
    error["arguments"] = std::move(args);
    Json out = Json::object();
    out["error"] = std::move(error);
    return out;
}

std::string jsonLine(const Json& object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace qfs
