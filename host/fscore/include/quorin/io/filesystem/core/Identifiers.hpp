#pragma once
// The filesystem core's own error identifiers, component "QUORIN:io:filesystem:core".
// Each is thrown as foundation::core::except::Exception<X>; texts live in the catalogs.
#include "fl/ustring.hpp"
#include "resource_core/BaseMsgID.hpp"

namespace QUORIN::io::filesystem::core {

inline constexpr const char* component = "QUORIN:io:filesystem:core";

// Argument: the option name as given.
struct InvalidReplacementRuleName : resource_core::FixedMsgID<1> {
    explicit InvalidReplacementRuleName(const fl::ustring& name)
        : FixedMsgID(component, "InvalidReplacementRuleName", name) {}
};

// Argument: the option value as given.
struct InvalidReplacementRuleValue : resource_core::FixedMsgID<1> {
    explicit InvalidReplacementRuleValue(const fl::ustring& value)
        : FixedMsgID(component, "InvalidReplacementRuleValue", value) {}
};

// Argument: the option value as given.
struct AmbiguousReplacementRuleValue : resource_core::FixedMsgID<1> {
    explicit AmbiguousReplacementRuleValue(const fl::ustring& value)
        : FixedMsgID(component, "AmbiguousReplacementRuleValue", value) {}
};

// Argument: the URL as given.
struct InvalidURLPort : resource_core::FixedMsgID<1> {
    explicit InvalidURLPort(const fl::ustring& url)
        : FixedMsgID(component, "InvalidURLPort", url) {}
};

}  // namespace QUORIN::io::filesystem::core
