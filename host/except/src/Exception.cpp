#include "foundation/core/except/Exception.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"

namespace foundation::core::except {

// Out-of-line destructors are the key functions: one vtable and one type identity per
// class, in this library.
IException::~IException() = default;
IUserException::~IUserException() = default;
IMsgIDException::~IMsgIDException() = default;

const char* IException::what() const noexcept {
    try {
        whatCache_ = fl::i18n::to_utf8(messageText());
    } catch (...) {
        whatCache_.clear();
    }
    return whatCache_.c_str();
}

std::string IUserException::convert_str(const fl::ustring& text) const {
    return fl::i18n::to_utf8(text);
}

fl::ustring IUserException::convert_str(const std::string& text) const {
    return fl::i18n::to_ustring(text);
}

fl::ustring IUserException::ToUstringImpl() const { return messageText(); }

std::string IMsgIDException::get_error_id(const resource_core::BaseMsgID& id) {
    std::string text;
    text.reserve(id.getComponent().size() + 1 + id.getMnemonic().size());
    text += id.getComponent();
    text += ':';
    text += id.getMnemonic();
    return text;
}

fl::ustring IMsgIDException::GetUnicodeMessageTxt() const {
    return fl::i18n::MessageCatalog::get_message(GetBaseMsgIDObj(), fl::i18n::ZkLocale::global());
}

}  // namespace foundation::core::except
