#include "fl/i18n/unicode.hpp"

#include <cstdint>

namespace fl::i18n {
namespace {

constexpr char16_t kEscapeBase = 0xDC00;

// Length of a well-formed UTF-8 sequence starting at s[i], or 0 when it is not one
// (RFC 3629 section 4: no overlongs, no surrogates, nothing above U+10FFFF).
std::size_t sequenceLength(std::string_view s, std::size_t i, char32_t& cp) {
    const auto b0 = static_cast<unsigned char>(s[i]);
    const std::size_t rest = s.size() - i;
    auto cont = [&](std::size_t k) {
        return (static_cast<unsigned char>(s[i + k]) & 0xC0U) == 0x80U;
    };
    auto byte = [&](std::size_t k) {
        return static_cast<char32_t>(static_cast<unsigned char>(s[i + k]) & 0x3FU);
    };
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        if (rest < 2 || !cont(1)) return 0;
        cp = (static_cast<char32_t>(b0 & 0x1FU) << 6) | byte(1);
        return 2;
    }
    if (b0 >= 0xE0 && b0 <= 0xEF) {
        if (rest < 3 || !cont(1) || !cont(2)) return 0;
        const auto b1 = static_cast<unsigned char>(s[i + 1]);
        if ((b0 == 0xE0 && b1 < 0xA0) || (b0 == 0xED && b1 > 0x9F)) return 0;
        cp = (static_cast<char32_t>(b0 & 0x0FU) << 12) | (byte(1) << 6) | byte(2);
        return 3;
    }
    if (b0 >= 0xF0 && b0 <= 0xF4) {
        if (rest < 4 || !cont(1) || !cont(2) || !cont(3)) return 0;
        const auto b1 = static_cast<unsigned char>(s[i + 1]);
        if ((b0 == 0xF0 && b1 < 0x90) || (b0 == 0xF4 && b1 > 0x8F)) return 0;
        cp = (static_cast<char32_t>(b0 & 0x07U) << 18) | (byte(1) << 12) | (byte(2) << 6) | byte(3);
        return 4;
    }
    return 0;
}

}  // namespace

void append_ustring(ustring& out, std::string_view utf8) {
    // Widen in place: ASCII runs (nearly every path) become one resize and a plain loop
    // the compiler vectorises; the result never has more units than the input has bytes.
    const std::size_t base = out.size();
    out.resize(base + utf8.size());
    char16_t* dst = out.data() + base;
    std::size_t i = 0;
    while (i < utf8.size()) {
        const auto b0 = static_cast<unsigned char>(utf8[i]);
        if (b0 < 0x80) {
            *dst++ = static_cast<char16_t>(b0);
            ++i;
            continue;
        }
        char32_t cp = 0;
        const std::size_t n = sequenceLength(utf8, i, cp);
        if (n == 0) {
            *dst++ = static_cast<char16_t>(kEscapeBase + b0);
            ++i;
            continue;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            *dst++ = static_cast<char16_t>(0xD800 + (cp >> 10));
            *dst++ = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            *dst++ = static_cast<char16_t>(cp);
        }
        i += n;
    }
    out.resize(static_cast<std::size_t>(dst - out.data()));
}

void append_utf8(std::string& out, ustring_view text) {
    // At most three bytes per unit (a surrogate pair is four bytes for two units).
    const std::size_t base = out.size();
    out.resize(base + 3 * text.size());
    char* dst = out.data() + base;
    auto put = [&dst](unsigned v) { *dst++ = static_cast<char>(static_cast<unsigned char>(v)); };
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t cp = text[i];
        if (cp < 0x80) {
            put(static_cast<unsigned>(cp));
            continue;
        }
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (static_cast<char32_t>(text[i + 1]) - 0xDC00);
            ++i;
        } else if (cp >= 0xDC80 && cp <= 0xDCFF) {
            put(static_cast<unsigned>(cp - kEscapeBase));  // an escaped raw byte
            continue;
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            cp = 0xFFFD;
        }
        if (cp < 0x800) {
            put(0xC0U | static_cast<unsigned>(cp >> 6));
            put(0x80U | static_cast<unsigned>(cp & 0x3F));
        } else if (cp < 0x10000) {
            put(0xE0U | static_cast<unsigned>(cp >> 12));
            put(0x80U | static_cast<unsigned>((cp >> 6) & 0x3F));
            put(0x80U | static_cast<unsigned>(cp & 0x3F));
        } else {
            put(0xF0U | static_cast<unsigned>(cp >> 18));
            put(0x80U | static_cast<unsigned>((cp >> 12) & 0x3F));
            put(0x80U | static_cast<unsigned>((cp >> 6) & 0x3F));
            put(0x80U | static_cast<unsigned>(cp & 0x3F));
        }
    }
    out.resize(static_cast<std::size_t>(dst - out.data()));
}

ustring to_ustring(std::string_view utf8) {
    ustring out;
    append_ustring(out, utf8);
    return out;
}

std::string to_utf8(ustring_view text) {
    std::string out;
    append_utf8(out, text);
    return out;
}

}  // namespace fl::i18n
