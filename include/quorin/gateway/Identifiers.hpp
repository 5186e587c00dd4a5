#pragma once
// One identifier class per message identifier, in a namespace that spells its component
// (QUORIN::io::filesystem::symlink::FileExists is "QUORIN:io:filesystem:symlink:FileExists").
//
// Each class stores component and mnemonic apart; its constructor takes the arguments in
// message order (UTF-16 or 8-bit text, or integers), presizes the argument list and
// assigns each argument into its slot by type. Classes without arguments take nothing.
#include "resource_core/BaseMsgID.hpp"

#include <cstddef>

#define QUORIN_IDENTIFIER(NS, COMPONENT, MNEMONIC, COUNT)                     \
    namespace NS {                                                            \
    class MNEMONIC : public resource_core::FixedMsgID<COUNT> {                \
    public:                                                                   \
        static constexpr const char* component = COMPONENT;                   \
        static constexpr const char* mnemonic = #MNEMONIC;                    \
        template <class... A>                                                 \
        requires(sizeof...(A) == (COUNT)) explicit MNEMONIC(const A&... args) \
            : FixedMsgID(COMPONENT, #MNEMONIC, args...) {}                    \
    };                                                                        \
    }
#include "quorin/gateway/Identifiers.def"
#undef QUORIN_IDENTIFIER

namespace quorin::gateway {

struct IdentifierInfo {
    const char* identifier;  // component:mnemonic
    const char* component;
    const char* qualifiedClass;  // the identifier class, for diagnostics
    std::size_t argumentCount;
};

// The whole table, in the order of Identifiers.def.
inline constexpr IdentifierInfo kIdentifiers[] = {
#define QUORIN_IDENTIFIER(NS, COMPONENT, MNEMONIC, COUNT) \
    {COMPONENT ":" #MNEMONIC, COMPONENT, #NS "::" #MNEMONIC, COUNT},
#include "quorin/gateway/Identifiers.def"
#undef QUORIN_IDENTIFIER
};

}  // namespace quorin::gateway
