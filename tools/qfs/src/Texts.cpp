#include "qfs/Texts.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace qfs {

std::string tr(std::string_view key, const std::vector<resource_core::MessageArg>& args) {
    using fl::i18n::MessageCatalog;
    const std::string id = "QUORIN:qfs:" + std::string(key);
    auto text = MessageCatalog::find_text(id, fl::i18n::ZkLocale::global().language());
    if (!text) text = MessageCatalog::find_text(id, "en");
    if (!text) return id;
    return fl::i18n::to_utf8(MessageCatalog::format(*text, args));
}

namespace {

char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// Edit distance where changing only a letter's case costs a third of a real edit, so
// "pathfcn" is nearer to "pathFcn" than "pathFcm" is.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (auto& r : row) r *= 3;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i * 3;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t up = row[j];
            std::size_t change = 3;
            if (a[i - 1] == b[j - 1]) {
                change = 0;
            } else if (lower(a[i - 1]) == lower(b[j - 1])) {
                change = 1;
            }
            row[j] = std::min({row[j] + 3, row[j - 1] + 3, diagonal + change});
            diagonal = up;
        }
    }
    return row[b.size()];
}

}  // namespace

std::string nearest(std::string_view word, const std::vector<std::string>& candidates) {
    std::string best;
    std::size_t bestCost = 0;
    for (const auto& c : candidates) {
        const std::size_t cost = distance(word, c);
        if (best.empty() || cost < bestCost) {
            best = c;
            bestCost = cost;
        }
    }
    // Up to a third of the word's letters may be wrong; below that a guess misleads.
    if (best.empty() || bestCost > word.size()) return {};
    return best;
}

}  // namespace qfs
