#include "qfs/Display.hpp"

#include "qfs/Values.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace qfs {

std::string formatNumber(double v) {
    if (std::isnan(v)) return "NaN";
    if (std::isinf(v)) return v > 0 ? "Inf" : "-Inf";
    if (v == std::floor(v) && std::fabs(v) < 1e15) {
        return std::to_string(static_cast<long long>(v));  // also turns -0 into 0
    }
    char buf[32];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    return {buf, r.ptr};
}

namespace {

const char* kIndent = "    ";

std::string utf8(const char16_t* text, std::size_t length) {
    return fl::i18n::to_utf8(fl::ustring_view(text, length));
}

// Appended, not `"{" + text`: that form inserts at the front of a temporary, which g++ 12
// at -O3 reports as an overlapping copy (-Wrestrict) that cannot happen.
std::string enclosed(std::string_view open, const std::string& text, std::string_view close) {
    std::string out;
    out.reserve(open.size() + text.size() + close.size());
    out.append(open).append(text).append(close);
    return out;
}

template <class T>
T load(const vqArray* a, std::size_t k) {
    T v{};
    std::memcpy(&v, static_cast<const char*>(vqGetData(a)) + k * sizeof(T), sizeof(T));
    return v;
}

std::string numericElement(const vqArray* a, std::size_t k) {
    switch (vqGetClassID(a)) {
        case vqDOUBLE_CLASS:
            return formatNumber(vqGetPr(a)[k]);
        case vqSINGLE_CLASS: {
            const auto f = load<float>(a, k);
            if (std::isnan(f) || std::isinf(f) || f == std::floor(f)) {
                return formatNumber(static_cast<double>(f));
            }
            char buf[32];
            const auto r = std::to_chars(buf, buf + sizeof buf, f);
            return {buf, r.ptr};
        }
        case vqLOGICAL_CLASS:
            return vqGetLogicals(a)[k] ? "1" : "0";
        case vqINT8_CLASS:
            return std::to_string(load<std::int8_t>(a, k));
        case vqUINT8_CLASS:
            return std::to_string(load<std::uint8_t>(a, k));
        case vqINT16_CLASS:
            return std::to_string(load<std::int16_t>(a, k));
        case vqUINT16_CLASS:
            return std::to_string(load<std::uint16_t>(a, k));
        case vqINT32_CLASS:
            return std::to_string(load<std::int32_t>(a, k));
        case vqUINT32_CLASS:
            return std::to_string(load<std::uint32_t>(a, k));
        case vqINT64_CLASS:
            return std::to_string(load<std::int64_t>(a, k));
        case vqUINT64_CLASS:
            return std::to_string(load<std::uint64_t>(a, k));
        default:
            return "?";
    }
}

std::string stringElement(const vqArray* a, std::size_t k) {
    const auto* rec = Hexfarrow::String::getString(a).get(k);
    if (rec == nullptr) return "<missing>";
    return enclosed("\"", utf8(rec->text, rec->length), "\"");
}

std::string sizeAndClass(const vqArray* a) { return formatDims(a) + " " + vqGetClassName(a); }

bool isTwoDims(const vqArray* a) { return vqGetNumberOfDimensions(a) == 2; }
bool isCharRow(const vqArray* a) {
    return Hexfarrow::String::isCharRowOrEmpty(a) && vqGetM(a) == 1;
}

std::string charRow(const vqArray* a) {
    return enclosed("'", utf8(vqGetChars(a), vqGetNumberOfElements(a)), "'");
}

bool isNumberLike(const vqArray* a) { return vqIsNumeric(a) || vqIsLogical(a); }

// A value shown inside a cell element's braces.
std::string cellElement(const vqArray* e) {
    if (e == nullptr) return "{0\u00d70 double}";
    if (isCharRow(e)) return enclosed("{", charRow(e), "}");
    if (vqIsScalar(e) && vqGetClassID(e) == vqSTRING_CLASS)
        return enclosed("{[", stringElement(e, 0), "]}");
    if (vqIsScalar(e) && isNumberLike(e)) return enclosed("{[", numericElement(e, 0), "]}");
    return enclosed("{", sizeAndClass(e), "}");
}

// A value shown after a struct field's name.
std::string fieldValue(const vqArray* e) {
    if (e == nullptr) return "[]";
    if (isCharRow(e)) return charRow(e);
    if (vqIsChar(e) && vqIsEmpty(e) && isTwoDims(e) && vqGetM(e) == 0 && vqGetN(e) == 0)
        return "''";
    if (vqIsScalar(e) && vqGetClassID(e) == vqSTRING_CLASS) return stringElement(e, 0);
    if (vqIsScalar(e) && isNumberLike(e)) return numericElement(e, 0);
    if (vqIsDouble(e) && vqIsEmpty(e) && isTwoDims(e) && vqGetM(e) == 0 && vqGetN(e) == 0)
        return "[]";
    if (vqIsCell(e)) return enclosed("{", sizeAndClass(e), "}");
    return enclosed("[", sizeAndClass(e), "]");
}

// The subscripts of page p beyond the first two dimensions: "(:,:,2,1)".
std::string pageLabel(const vqArray* a, std::size_t page) {
    std::string label = "(:,:";
    const std::size_t n = vqGetNumberOfDimensions(a);
    for (std::size_t d = 2; d < n; ++d) {
        const vqSize extent = vqGetDimensions(a)[d];
        label += ',';
        label += std::to_string(page % extent + 1);
        page /= extent;
    }
    return label + ")";
}

// Characters a terminal shows for UTF-8 text (continuation bytes take no column).
std::size_t displayWidth(const std::string& text) {
    std::size_t n = 0;
    for (const char c : text) {
        if ((static_cast<unsigned char>(c) & 0xC0U) != 0x80U) ++n;
    }
    return n;
}

// Rows of one page. Numbers share one width and are right-aligned, as in a matrix; text
// and cells are left-aligned in columns as wide as their widest element.
void grid(std::string& out, const std::vector<std::string>& cells, vqSize rows, vqSize cols,
          bool numbers) {
    std::vector<std::size_t> widths(cols, 0);
    for (vqSize c = 0; c < cols; ++c) {
        for (vqSize r = 0; r < rows; ++r) {
            widths[c] = std::max(widths[c], displayWidth(cells[c * rows + r]));
        }
    }
    if (numbers) {
        const std::size_t widest = *std::max_element(widths.begin(), widths.end());
        std::fill(widths.begin(), widths.end(), widest);
    }
    for (vqSize r = 0; r < rows; ++r) {
        std::string line = kIndent;
        for (vqSize c = 0; c < cols; ++c) {
            const std::string& cell = cells[c * rows + r];
            if (c > 0) line += "   ";
            const std::string pad(widths[c] - displayWidth(cell), ' ');
            line += numbers ? pad + cell : cell + pad;
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out += line + "\n";
    }
}

void fieldLines(std::string& out, const vqArray* s, std::size_t element) {
    const auto names = s->get_struct_field_names();
    std::size_t width = 0;
    for (const auto& n : names) width = std::max(width, n.size());
    for (std::size_t f = 0; f < names.size(); ++f) {
        out += kIndent + std::string(width - names[f].size(), ' ') + names[f] + ": " +
               fieldValue(vqGetFieldByNumber(s, element, static_cast<int>(f))) + "\n";
    }
}

void structValue(std::string& out, std::string_view name, const vqArray* s) {
    const auto names = s->get_struct_field_names();
    if (vqIsScalar(s)) {
        if (names.empty()) {
            out += "  struct with no fields.\n";
            return;
        }
        out += "  struct with fields:\n";
        fieldLines(out, s, 0);
        return;
    }
    out += "  " + formatDims(s) + (vqIsEmpty(s) ? " empty" : "") + " struct array with";
    out += names.empty() ? " no fields.\n" : " fields:\n";
    for (const auto& n : names) out += kIndent + n + "\n";
    if (names.empty()) return;
    const std::size_t count = vqGetNumberOfElements(s);
    for (std::size_t k = 0; k < count; ++k) {
        out += "  " + std::string(name) + "(" + std::to_string(k + 1) + ") =\n";
        fieldLines(out, s, k);
    }
}

void arrayValue(std::string& out, const vqArray* a) {
    const vqClassID cls = vqGetClassID(a);
    const std::size_t count = vqGetNumberOfElements(a);
    if (count == 0) {
        out += "  " + formatDims(a) + " empty " + vqGetClassName(a) + " array\n";
        return;
    }
    if (cls == vqCHAR_CLASS && isCharRow(a)) {
        out += kIndent + charRow(a) + "\n";
        return;
    }
    if (count == 1 && cls != vqCELL_CLASS) {
        if (cls == vqLOGICAL_CLASS) out += "  logical\n";
        out +=
            kIndent + (cls == vqSTRING_CLASS ? stringElement(a, 0) : numericElement(a, 0)) + "\n";
        return;
    }
    out += "  " + sizeAndClass(a) + " array\n";
    const vqSize rows = vqGetM(a);
    const vqSize cols = vqGetDimensions(a)[1];
    const std::size_t pageSize = rows * cols;
    const std::size_t pages = count / pageSize;
    for (std::size_t p = 0; p < pages; ++p) {
        if (pages > 1 || !isTwoDims(a)) out += "  " + pageLabel(a, p) + " =\n";
        const std::size_t base = p * pageSize;
        if (cls == vqCHAR_CLASS) {
            const vqChar* chars = vqGetChars(a) + base;
            for (vqSize r = 0; r < rows; ++r) {
                fl::ustring row;
                for (vqSize c = 0; c < cols; ++c) row += chars[c * rows + r];
                out += kIndent + std::string("'") + fl::i18n::to_utf8(row) + "'\n";
            }
            continue;
        }
        std::vector<std::string> cells(pageSize);
        for (std::size_t k = 0; k < pageSize; ++k) {
            if (cls == vqSTRING_CLASS) {
                cells[k] = stringElement(a, base + k);
            } else if (cls == vqCELL_CLASS) {
                cells[k] = cellElement(vqGetCell(a, base + k));
            } else {
                cells[k] = numericElement(a, base + k);
            }
        }
        grid(out, cells, rows, cols, isNumberLike(a));
    }
}

}  // namespace

std::string displayValue(std::string_view name, const vqArray* value) {
    std::string out = std::string(name) + " =\n";
    if (value == nullptr) {
        out += "  (not assigned)\n";
    } else if (vqIsStruct(value)) {
        structValue(out, name, value);
    } else {
        arrayValue(out, value);
    }
    return out;
}

}  // namespace qfs
