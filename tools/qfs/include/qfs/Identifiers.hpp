#pragma once
// qfs's own identified errors: a statement it cannot parse, a called name that is no
// built-in, a name that is neither a built-in nor a variable, a built-in the loaded
// library does not export, a library that does not load.
//
// They are thrown as the host's Exception<ID>, so they are reported exactly like the
// errors of the built-ins (catalog text in the current locale, identifier, arguments).
#include "foundation/core/except/Exception.hpp"
#include "resource_core/BaseMsgID.hpp"

#include <cstdint>
#include <string>

namespace QUORIN::qfs {

// Arguments: the 1-based column (integer) and what was expected there (8-bit text).
struct ParseError : resource_core::FixedMsgID<2> {
    ParseError(std::int64_t column, const std::string& detail)
        : FixedMsgID("QUORIN:qfs", "ParseError", column, detail) {}
};

// Arguments: the name as typed, the known built-ins separated by ", ".
struct UnknownFunction : resource_core::FixedMsgID<2> {
    UnknownFunction(const std::string& name, const std::string& known)
        : FixedMsgID("QUORIN:qfs", "UnknownFunction", name, known) {}
};

// Arguments: the name as typed, the nearest built-in or variable ("" when none is near
// enough to be what was meant).
struct UnknownName : resource_core::FixedMsgID<2> {
    UnknownName(const std::string& name, const std::string& nearest)
        : FixedMsgID("QUORIN:qfs", "UnknownName", name, nearest) {}
};

// Argument: the built-in's name.
struct NotAvailable : resource_core::FixedMsgID<1> {
    explicit NotAvailable(const std::string& name)
        : FixedMsgID("QUORIN:qfs", "NotAvailable", name) {}
};

// Arguments: the library path, the loader's reason.
struct LibraryNotLoaded : resource_core::FixedMsgID<2> {
    LibraryNotLoaded(const std::string& path, const std::string& reason)
        : FixedMsgID("QUORIN:qfs", "LibraryNotLoaded", path, reason) {}
};

}  // namespace QUORIN::qfs

namespace qfs {

using ParseErrorException = foundation::core::except::Exception<QUORIN::qfs::ParseError>;

// Throws the parse error for a 1-based column.
[[noreturn]] void throwParseError(std::size_t column, const std::string& detail);

// QUORIN:qfs:UnknownName as qfs throws it: with no near name, its text asks nothing.
class UnknownNameError final
    : public foundation::core::except::Exception<QUORIN::qfs::UnknownName> {
public:
    UnknownNameError(const std::string& name, const std::string& nearest)
        : Exception(QUORIN::qfs::UnknownName(name, nearest)) {}
    [[nodiscard]] UnknownNameError* clone() const override { return new UnknownNameError(*this); }
    [[noreturn]] void rethrow() const override { throw UnknownNameError(*this); }
    [[nodiscard]] fl::ustring GetUnicodeMessageTxt() const override;
};

}  // namespace qfs
