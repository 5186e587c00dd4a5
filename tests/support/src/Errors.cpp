#include "zkfs/test/Errors.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"

#include <sstream>
#include <typeinfo>

namespace zkfs::test {

std::string describe(const resource_core::MessageArg& arg) {
    switch (arg.index()) {
        case 0:
            return std::to_string(std::get<0>(arg));
        case 1:
            return "\"" + std::get<1>(arg) + "\"";
        default:
            return "u\"" + fl::i18n::to_utf8(std::get<2>(arg)) + "\"";
    }
}

fl::ustring catalogMessage(const std::string& identifier, const fl::ustring& argument) {
    const auto colon = identifier.rfind(':');
    resource_core::BaseMsgID msg(identifier.substr(0, colon), identifier.substr(colon + 1));
    msg.appendArg(argument);
    return fl::i18n::MessageCatalog::get_message(msg, fl::i18n::ZkLocale::global());
}

std::string describe(const std::vector<resource_core::MessageArg>& args) {
    std::string out = "(";
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (i != 0) out += ", ";
        out += describe(args[i]);
    }
    return out + ")";
}

::testing::AssertionResult matchesIdentifiedError(
    const foundation::core::except::IMsgIDException& error, const std::string& identifier,
    const std::vector<resource_core::MessageArg>& args) {
    const std::string id = error.GetID();
    const auto& actual = error.GetBaseMsgIDObj().getArgs();
    if (id == identifier && actual == args) {
        return ::testing::AssertionSuccess();
    }
    // std::variant's == compares the alternative first, so a text given as 8-bit where
    // UTF-16 was expected is a mismatch, as it must be.
    return ::testing::AssertionFailure() << "expected " << identifier << " " << describe(args)
                                         << "\n  actual " << id << " " << describe(actual);
}

::testing::AssertionResult unexpectedException(const std::exception_ptr& caught,
                                               const std::string& identifier) {
    std::ostringstream what;
    try {
        std::rethrow_exception(caught);
    } catch (const std::exception& e) {
        what << typeid(e).name() << ": " << e.what();
    } catch (...) {
        what << "an exception of unknown type";
    }
    return ::testing::AssertionFailure()
           << "expected " << identifier << ", but it threw " << what.str();
}

}  // namespace zkfs::test
