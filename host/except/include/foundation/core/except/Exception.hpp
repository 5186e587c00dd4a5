#pragma once
// The host's exception hierarchy.
//
// IException carries Boost's exception information block (so diagnostics and exception
// transport work); IMsgIDException adds an identifier and arguments whose text comes
// from the message catalog. Exception<ID> is the one thrown type per identifier class.
//
// These classes keep default visibility: their type identity must be the same in every
// library that throws or catches them.
#include "fl/ustring.hpp"
#include "resource_core/BaseMsgID.hpp"

#include <boost/exception/exception.hpp>

#include <exception>
#include <memory>
#include <string>

#define FOUNDATION_EXCEPT_API __attribute__((visibility("default")))

namespace foundation::core::except {

class FOUNDATION_EXCEPT_API IException : public virtual boost::exception {
public:
    IException() = default;
    IException(const IException&) = default;
    IException& operator=(const IException&) = default;
    ~IException() override;

    // A heap copy of the most-derived object (exception transport).
    [[nodiscard]] virtual IException* clone() const = 0;
    // Throws a copy of the most-derived object.
    [[noreturn]] virtual void rethrow() const = 0;
    // The UTF-8 form of the user text; stays valid as long as the object.
    [[nodiscard]] virtual const char* what() const noexcept;

protected:
    [[nodiscard]] virtual fl::ustring messageText() const = 0;

private:
    mutable std::string whatCache_;
};

class FOUNDATION_EXCEPT_API IUserException : public IException {
public:
    ~IUserException() override;
    [[nodiscard]] virtual std::string convert_str(const fl::ustring& text) const;
    [[nodiscard]] virtual fl::ustring convert_str(const std::string& text) const;
    [[nodiscard]] virtual fl::ustring ToUstringImpl() const;
};

class FOUNDATION_EXCEPT_API IMsgIDException : public IUserException {
public:
    ~IMsgIDException() override;

    // Component and mnemonic joined by one colon.
    static std::string get_error_id(const resource_core::BaseMsgID& id);

    [[nodiscard]] virtual std::string GetID() const = 0;
    // The catalog text for the identifier in the global locale, holes filled.
    [[nodiscard]] virtual fl::ustring GetUnicodeMessageTxt() const;
    [[nodiscard]] virtual const resource_core::BaseMsgID& GetBaseMsgIDObj() const = 0;

protected:
    [[nodiscard]] fl::ustring messageText() const override { return GetUnicodeMessageTxt(); }
};

template <class ID>
class Exception : public IMsgIDException, public std::exception {
public:
    // boost::exception starts with no information, no throw function, no file, line -1:
    // the identifier alone says what happened.
    explicit Exception(const ID& id) : id_(id), idText_(get_error_id(id_)) {}

    [[nodiscard]] Exception* clone() const override { return new Exception(*this); }
    [[noreturn]] void rethrow() const override { throw Exception(*this); }
    [[nodiscard]] const char* what() const noexcept override { return IException::what(); }
    [[nodiscard]] std::string GetID() const override { return idText_; }
    [[nodiscard]] const resource_core::BaseMsgID& GetBaseMsgIDObj() const override { return id_; }
    [[nodiscard]] const ID& getMsgID() const noexcept { return id_; }

private:
    ID id_;
    std::string idText_;
};

// Throws Exception<ID> built from an identifier object.
template <class ID>
[[noreturn]] void throwMsgID(const ID& id) {
    throw Exception<ID>(id);
}

}  // namespace foundation::core::except
