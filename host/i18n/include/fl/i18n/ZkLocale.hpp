#pragma once
// The user's locale as the message catalog sees it: a POSIX locale name such as
// "de_DE.UTF-8". Only the language part chooses a catalog; an unknown language falls
// back to English.
#include <string>

namespace fl::i18n {

class ZkLocale {
public:
    ZkLocale();  // English
    explicit ZkLocale(std::string name);

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    // "de" for "de_DE.UTF-8@euro"; "en" for "C", "POSIX" and "".
    [[nodiscard]] std::string language() const;

    // The process-wide locale, set by the front end. Not synchronised: the host changes
    // it only between calls.
    static const ZkLocale& global();
    static void global(const ZkLocale& locale);

    // From LC_ALL, then LC_MESSAGES, then LANG, as POSIX orders them.
    static ZkLocale fromEnvironment();

private:
    std::string name_;
};

}  // namespace fl::i18n
