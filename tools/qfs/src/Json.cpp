#include "qfs/Json.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <charconv>
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

// ---- streaming

constexpr char kHex[] = "0123456789abcdef";

void escapeUnit(std::string& out, unsigned unit) {
    const char text[6] = {'\\',
                          'u',
                          kHex[(unit >> 12) & 0xFU],
                          kHex[(unit >> 8) & 0xFU],
                          kHex[(unit >> 4) & 0xFU],
                          kHex[unit & 0xFU]};
    out.append(text, sizeof text);
}

void asciiOrEscape(std::string& out, char c) {
    switch (c) {
        case '"':
            out += "\\\"";
            return;
        case '\\':
            out += "\\\\";
            return;
        case '\n':
            out += "\\n";
            return;
        case '\t':
            out += "\\t";
            return;
        case '\r':
            out += "\\r";
            return;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                escapeUnit(out, static_cast<unsigned char>(c));
            } else {
                out += c;
            }
    }
}

bool plainAscii(char16_t u) { return u >= 0x20 && u < 0x7F && u != '"' && u != '\\'; }

// UTF-16 straight to a JSON string: no intermediate UTF-8 copy.
void writeUtf16(std::string& out, const char16_t* text, std::size_t length) {
    out += '"';
    std::size_t i = 0;
    while (i < length) {
        std::size_t run = i;
        while (run < length && plainAscii(text[run])) ++run;
        if (run > i) {
            const std::size_t at = out.size();
            out.resize(at + (run - i));
            for (std::size_t k = i; k < run; ++k) out[at + k - i] = static_cast<char>(text[k]);
            i = run;
            if (i == length) break;
        }
        const char32_t u = text[i++];
        if (u < 0x80) {
            asciiOrEscape(out, static_cast<char>(u));
            continue;
        }
        char32_t cp = u;
        if (u >= 0xD800 && u <= 0xDBFF && i < length && text[i] >= 0xDC00 && text[i] <= 0xDFFF) {
            cp = 0x10000 + ((u - 0xD800) << 10) + (text[i++] - 0xDC00);
        } else if (u >= 0xDC80 && u <= 0xDCFF) {
            escapeUnit(out, u);  // a byte that was not UTF-8
            continue;
        } else if (u >= 0xD800 && u <= 0xDFFF) {
            cp = 0xFFFD;
        }
        if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    out += '"';
}

template <class T>
void writeInteger(std::string& out, T v) {
    char buf[24];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, r.ptr);
}

void writeDouble(std::string& out, double v) {
    if (std::isnan(v)) {
        out += "\"NaN\"";
    } else if (std::isinf(v)) {
        out += v > 0 ? "\"Inf\"" : "\"-Inf\"";
    } else {
        char buf[32];
        const auto r = std::to_chars(buf, buf + sizeof buf, v);
        out.append(buf, r.ptr);
        // A double stays a double when read back.
        if (std::memchr(buf, '.', static_cast<std::size_t>(r.ptr - buf)) == nullptr &&
            std::memchr(buf, 'e', static_cast<std::size_t>(r.ptr - buf)) == nullptr)
            out += ".0";
    }
}

// One element of a numeric, logical or string array.
void writeElement(std::string& out, const vqArray* a, vqClassID cls, std::size_t k) {
    switch (cls) {
        case vqDOUBLE_CLASS:
            writeDouble(out, vqGetPr(a)[k]);
            return;
        case vqSINGLE_CLASS:
            writeDouble(out, static_cast<double>(load<float>(a, k)));
            return;
        case vqLOGICAL_CLASS:
            out += vqGetLogicals(a)[k] ? "true" : "false";
            return;
        case vqINT8_CLASS:
            return writeInteger(out, load<std::int8_t>(a, k));
        case vqUINT8_CLASS:
            return writeInteger(out, load<std::uint8_t>(a, k));
        case vqINT16_CLASS:
            return writeInteger(out, load<std::int16_t>(a, k));
        case vqUINT16_CLASS:
            return writeInteger(out, load<std::uint16_t>(a, k));
        case vqINT32_CLASS:
            return writeInteger(out, load<std::int32_t>(a, k));
        case vqUINT32_CLASS:
            return writeInteger(out, load<std::uint32_t>(a, k));
        case vqINT64_CLASS:
            return writeInteger(out, load<std::int64_t>(a, k));
        case vqUINT64_CLASS:
            return writeInteger(out, load<std::uint64_t>(a, k));
        case vqSTRING_CLASS: {
            const auto* rec = Hexfarrow::String::getString(a).get(k);
            if (rec == nullptr) {
                out += "null";
            } else {
                writeUtf16(out, rec->text, rec->length);
            }
            return;
        }
        default:
            out += "null";
    }
}

// Field names written once per array, not once per element.
std::vector<std::string> keysOf(const std::vector<std::string>& names) {
    std::vector<std::string> keys;
    for (const auto& n : names) {
        std::string key;
        writeString(key, n);
        key += ':';
        keys.push_back(std::move(key));
    }
    return keys;
}

// ---- plain form

void plainValue(std::string& out, const vqArray* a);

// Element k as a plain value: a struct element is an object, a cell slot its content.
void plainElement(std::string& out, const vqArray* a, vqClassID cls, std::size_t k,
                  const std::vector<std::string>& keys) {
    if (cls == vqCELL_CLASS) {
        plainValue(out, vqGetCell(a, k));
    } else if (cls == vqSTRUCT_CLASS) {
        out += '{';
        for (std::size_t f = 0; f < keys.size(); ++f) {
            if (f != 0) out += ',';
            out += keys[f];
            plainValue(out, vqGetFieldByNumber(a, k, static_cast<int>(f)));
        }
        out += '}';
    } else {
        writeElement(out, a, cls, k);
    }
}

void plainRows(std::string& out, const vqArray* a, vqClassID cls, std::size_t base, vqSize rows,
               vqSize cols, const std::vector<std::string>& keys) {
    out += '[';
    for (vqSize r = 0; r < rows; ++r) {
        if (r != 0) out += ',';
        out += '[';
        for (vqSize c = 0; c < cols; ++c) {
            if (c != 0) out += ',';
            plainElement(out, a, cls, base + c * rows + r, keys);
        }
        out += ']';
    }
    out += ']';
}

void plainValue(std::string& out, const vqArray* a) {
    if (a == nullptr) {
        out += "null";
        return;
    }
    const vqClassID cls = vqGetClassID(a);
    const std::size_t count = vqGetNumberOfElements(a);
    const std::size_t nd = vqGetNumberOfDimensions(a);
    const vqSize rows = vqGetM(a);
    const vqSize cols = vqGetN(a);
    if (cls == vqCHAR_CLASS) {
        const vqChar* chars = vqGetChars(a);
        if (nd == 2 && rows <= 1) {
            writeUtf16(out, chars, count);
            return;
        }
        // A char matrix: its rows, page after page.
        const vqSize width = vqGetDimensions(a)[1];
        const std::size_t pages = rows * width == 0 ? 0 : count / (rows * width);
        fl::ustring row;
        out += '[';
        for (std::size_t p = 0; p < pages; ++p) {
            for (vqSize r = 0; r < rows; ++r) {
                row.clear();
                for (vqSize c = 0; c < width; ++c) row += chars[p * rows * width + c * rows + r];
                if (p + r != 0) out += ',';
                writeUtf16(out, row.data(), row.size());
            }
        }
        out += ']';
        return;
    }
    std::vector<std::string> keys;
    if (cls == vqSTRUCT_CLASS) keys = keysOf(a->get_struct_field_names());
    if (count == 1 && cls != vqCELL_CLASS) {
        plainElement(out, a, cls, 0, keys);
        return;
    }
    if (nd == 2 && (rows == 1 || cols == 1 || count == 0)) {
        out += '[';
        for (std::size_t k = 0; k < count; ++k) {
            if (k != 0) out += ',';
            plainElement(out, a, cls, k, keys);
        }
        out += ']';
        return;
    }
    const vqSize width = vqGetDimensions(a)[1];
    if (nd == 2) {
        plainRows(out, a, cls, 0, rows, width, keys);
        return;
    }
    const std::size_t page = rows * width;
    const std::size_t pages = page == 0 ? 0 : count / page;
    out += '[';
    for (std::size_t p = 0; p < pages; ++p) {
        if (p != 0) out += ',';
        plainRows(out, a, cls, p * page, rows, width, keys);
    }
    out += ']';
}

}  // namespace

void writeString(std::string& out, std::string_view utf8) {
    // Valid UTF-8 passes as it is; a byte outside it becomes its escaped code unit.
    out += '"';
    std::size_t i = 0;
    while (i < utf8.size()) {
        const auto b = static_cast<unsigned char>(utf8[i]);
        if (b < 0x80) {
            asciiOrEscape(out, static_cast<char>(b));
            ++i;
            continue;
        }
        std::size_t len = 0;
        char32_t min = 0;
        if ((b & 0xE0U) == 0xC0U) {
            len = 2;
            min = 0x80;
        } else if ((b & 0xF0U) == 0xE0U) {
            len = 3;
            min = 0x800;
        } else if ((b & 0xF8U) == 0xF0U) {
            len = 4;
            min = 0x10000;
        }
        bool valid = len != 0 && i + len <= utf8.size();
        char32_t cp = valid ? (b & (0xFFU >> (len + 1))) : 0;
        for (std::size_t k = 1; valid && k < len; ++k) {
            const auto c = static_cast<unsigned char>(utf8[i + k]);
            valid = (c & 0xC0U) == 0x80U;
            cp = (cp << 6) | (c & 0x3FU);
        }
        valid = valid && cp >= min && cp <= 0x10FFFF && (cp < 0xD800 || cp > 0xDFFF);
        if (!valid) {
            escapeUnit(out, 0xDC00U + b);
            ++i;
            continue;
        }
        out.append(utf8.substr(i, len));
        i += len;
    }
    out += '"';
}

void writeTyped(std::string& out, const vqArray* value) {
    if (value == nullptr) {
        out += "null";
        return;
    }
    const vqClassID cls = vqGetClassID(value);
    // Class names are plain ASCII words: no escaping to do.
    constexpr std::string_view kClass = "{\"class\":\"";
    constexpr std::string_view kSize = "\",\"size\":[";
    out.append(kClass).append(vqGetClassName(value)).append(kSize);
    const std::size_t nd = vqGetNumberOfDimensions(value);
    const vqSize* dims = vqGetDimensions(value);
    if (nd == 2 && dims[0] == 1 && dims[1] == 1) {
        out.append("1,1]");
    } else {
        for (std::size_t d = 0; d < nd; ++d) {
            if (d != 0) out += ',';
            writeInteger(out, dims[d]);
        }
        out += ']';
    }
    const std::size_t count = vqGetNumberOfElements(value);
    if (cls == vqCHAR_CLASS) {
        out += ",\"value\":";
        writeUtf16(out, vqGetChars(value), count);
        out += '}';
        return;
    }
    if (cls == vqSTRUCT_CLASS) {
        const auto names = value->get_struct_field_names();
        const std::vector<std::string> keys = keysOf(names);
        out += ",\"fields\":[";
        for (std::size_t f = 0; f < names.size(); ++f) {
            if (f != 0) out += ',';
            writeString(out, names[f]);
        }
        out += "],\"value\":[";
        for (std::size_t k = 0; k < count; ++k) {
            if (k != 0) out += ',';
            out += '{';
            for (std::size_t f = 0; f < keys.size(); ++f) {
                if (f != 0) out += ',';
                out += keys[f];
                writeTyped(out, vqGetFieldByNumber(value, k, static_cast<int>(f)));
            }
            out += '}';
        }
        out += "]}";
        return;
    }
    out += ",\"value\":[";
    for (std::size_t k = 0; k < count; ++k) {
        if (k != 0) out += ',';
        if (cls == vqCELL_CLASS) {
            writeTyped(out, vqGetCell(value, k));
        } else {
            writeElement(out, value, cls, k);
        }
    }
    out += "]}";
}

void writePlain(std::string& out, const vqArray* value) { plainValue(out, value); }

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

namespace {

void writeDocument(std::string& out, const Json& j) {
    switch (j.type()) {
        case Json::value_t::object: {
            out += '{';
            bool first = true;
            for (const auto& [key, value] : j.items()) {
                if (!first) out += ',';
                first = false;
                writeString(out, key);
                out += ':';
                writeDocument(out, value);
            }
            out += '}';
            return;
        }
        case Json::value_t::array: {
            out += '[';
            for (std::size_t k = 0; k < j.size(); ++k) {
                if (k != 0) out += ',';
                writeDocument(out, j[k]);
            }
            out += ']';
            return;
        }
        case Json::value_t::string:
            writeString(out, j.get_ref<const std::string&>());
            return;
        default:
            out += j.dump();
    }
}

}  // namespace

std::string jsonLine(const Json& object) {
    std::string out;
    writeDocument(out, object);
    return out;
}

}  // namespace qfs
