#include "fl/i18n/MessageCatalog.hpp"

#include "embedded_catalogs.hpp"

#include "fl/i18n/unicode.hpp"

#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <unordered_map>

namespace fl::i18n {
namespace {

using Table = std::unordered_map<std::string, std::string>;

std::uint32_t readWord(const unsigned char* data, std::size_t size, std::size_t offset,
                       bool swapped) {
    if (offset + 4 > size) throw std::runtime_error("message catalog is truncated");
    std::uint32_t w = 0;
    std::memcpy(&w, data + offset, 4);
    return swapped ? __builtin_bswap32(w) : w;
}

// GNU .mo layout: magic, revision, count, offset of original strings, offset of
// translations; each table holds (length, offset) pairs.
Table parseMo(const unsigned char* data, std::size_t size) {
    constexpr std::uint32_t kMagic = 0x950412de;
    std::uint32_t magic = 0;
    if (size < 20) throw std::runtime_error("message catalog is truncated");
    std::memcpy(&magic, data, 4);
    const bool swapped = magic != kMagic;
    if (swapped && __builtin_bswap32(magic) != kMagic) {
        throw std::runtime_error("message catalog has a bad magic number");
    }
    const std::uint32_t count = readWord(data, size, 8, swapped);
    const std::uint32_t origins = readWord(data, size, 12, swapped);
    const std::uint32_t translations = readWord(data, size, 16, swapped);
    auto text = [&](std::uint32_t table, std::uint32_t i) {
        const std::uint32_t len = readWord(data, size, table + 8U * i, swapped);
        const std::uint32_t off = readWord(data, size, table + 8U * i + 4, swapped);
        if (std::size_t{off} + len > size) throw std::runtime_error("message catalog is truncated");
        return std::string(reinterpret_cast<const char*>(data + off), len);
    };
    Table table;
    table.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        std::string key = text(origins, i);
        if (key.empty()) continue;  // the PO header entry
        table.emplace(std::move(key), text(translations, i));
    }
    return table;
}

// Loaded once, on first use; the catalogs are part of this library's image.
const std::map<std::string, Table, std::less<>>& catalogs() {
    static const auto all = [] {
        std::map<std::string, Table, std::less<>> m;
        for (const auto& c : fl_i18n_detail::embeddedCatalogs()) {
            m.emplace(c.language, parseMo(c.data, c.size));
        }
        return m;
    }();
    return all;
}

const std::string* lookup(std::string_view identifier, std::string_view language) {
    const auto& all = catalogs();
    const auto cat = all.find(language);
    if (cat == all.end()) return nullptr;
    const auto it = cat->second.find(std::string(identifier));
    return it == cat->second.end() ? nullptr : &it->second;
}

void appendArg(ustring& out, const resource_core::MessageArg& arg) {
    switch (arg.index()) {
        case 0:
            append_ustring(out, std::to_string(std::get<0>(arg)));
            break;
        case 1:
            append_ustring(out, std::get<1>(arg));
            break;
        default:
            out += std::get<2>(arg);
            break;
    }
}

}  // namespace

std::size_t MessageCatalog::hole_count(std::string_view text) {
    std::size_t highest = 0;
    for (std::size_t i = 0; i + 2 < text.size(); ++i) {
        if (text[i] != '{') continue;
        std::size_t j = i + 1;
        std::size_t n = 0;
        while (j < text.size() && text[j] >= '0' && text[j] <= '9') {
            n = n * 10 + static_cast<std::size_t>(text[j] - '0');
            ++j;
        }
        if (j > i + 1 && j < text.size() && text[j] == '}' && n > highest) highest = n;
    }
    return highest;
}

ustring MessageCatalog::format(std::string_view text,
                               const std::vector<resource_core::MessageArg>& args) {
    ustring out;
    out.reserve(text.size());
    std::size_t plainStart = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '{') continue;
        std::size_t j = i + 1;
        std::size_t n = 0;
        while (j < text.size() && text[j] >= '0' && text[j] <= '9') {
            n = n * 10 + static_cast<std::size_t>(text[j] - '0');
            ++j;
        }
        if (j == i + 1 || j >= text.size() || text[j] != '}' || n == 0 || n > args.size()) continue;
        append_ustring(out, text.substr(plainStart, i - plainStart));
        appendArg(out, args[n - 1]);
        plainStart = j + 1;
        i = j;
    }
    append_ustring(out, text.substr(plainStart));
    return out;
}

ustring MessageCatalog::get_message(const resource_core::BaseMsgID& id, const ZkLocale& locale) {
    std::string identifier = id.getComponent();
    identifier += ':';
    identifier += id.getMnemonic();
    const std::string* text = lookup(identifier, locale.language());
    if (text == nullptr) text = lookup(identifier, "en");
    if (text != nullptr) return format(*text, id.getArgs());
    // No text anywhere: still show something useful rather than nothing.
    ustring out = to_ustring(identifier);
    for (const auto& arg : id.getArgs()) {
        out += u" ";
        appendArg(out, arg);
    }
    return out;
}

std::optional<std::string> MessageCatalog::find_text(std::string_view identifier,
                                                     std::string_view language) {
    const std::string* text = lookup(identifier, language);
    if (text == nullptr) return std::nullopt;
    return *text;
}

std::vector<std::string> MessageCatalog::identifiers(std::string_view language) {
    std::vector<std::string> ids;
    const auto& all = catalogs();
    const auto cat = all.find(language);
    if (cat == all.end()) return ids;
    ids.reserve(cat->second.size());
    for (const auto& entry : cat->second) ids.push_back(entry.first);
    return ids;
}

std::vector<std::string> MessageCatalog::languages() {
    std::vector<std::string> langs;
    for (const auto& entry : catalogs()) langs.push_back(entry.first);
    return langs;
}

}  // namespace fl::i18n
