#include "fl/i18n/ZkLocale.hpp"

#include <cstdlib>
#include <utility>

namespace fl::i18n {
namespace {

ZkLocale& globalLocale() {
    static ZkLocale locale;
    return locale;
}

}  // namespace

ZkLocale::ZkLocale() : name_("en_US.UTF-8") {}

ZkLocale::ZkLocale(std::string name) : name_(std::move(name)) {}

std::string ZkLocale::language() const {
    const auto end = name_.find_first_of("_.@");
    std::string lang = name_.substr(0, end);
    for (char& c : lang) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    if (lang.empty() || lang == "c" || lang == "posix") return "en";
    return lang;
}

const ZkLocale& ZkLocale::global() { return globalLocale(); }

void ZkLocale::global(const ZkLocale& locale) { globalLocale() = locale; }

ZkLocale ZkLocale::fromEnvironment() {
    for (const char* var : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(var);  // NOLINT(concurrency-mt-unsafe): front end only
        if (value != nullptr && *value != '\0') return ZkLocale(value);
    }
    return ZkLocale();
}

}  // namespace fl::i18n
