#pragma once
// Storage exceptions. Each is an identified error (an IMsgIDException, so a front end can
// always show an identifier and a catalog text) and a std::exception.
//
// - Exception(code, location[, osText]): a storage operation failed. Codes:
//   1 invalid location ("QUORIN:storage:invalidLocation"),
//   2 permission denied ("QUORIN:storage:permissionDenied"),
//   3 already exists ("QUORIN:storage:alreadyExists"),
//   4 not found ("QUORIN:storage:notFound"),
//   5 any other I/O failure ("QUORIN:storage:ioError", with the operating system's text).
//   The first message argument is always the location text.
//   Exception::fromSystemError(errno, location): the code for a failed system call on a
//   location, with the system's text: ENOENT, ENOTDIR 4; EACCES, EPERM, EROFS 2; EEXIST
//   3; ENAMETOOLONG 1; anything else 5.
// - InvalidIRIException(text): a text is no absolute IRI ("QUORIN:storage:invalidIRI").
// - UnsupportedIRISchemeException(iriText, scheme): no provider serves the scheme
//   ("QUORIN:storage:unsupportedScheme").
#include "fl/ustring.hpp"
#include "foundation/core/except/Exception.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "resource_core/BaseMsgID.hpp"

#include <exception>
#include <string>

namespace foundation::storage::vfs {

// Common base: catch this to take any storage failure.
class FOUNDATION_STORAGE_API StorageException : public foundation::core::except::IMsgIDException,
                                                public std::exception {
public:
    ~StorageException() override;
    [[nodiscard]] const char* what() const noexcept override;
    [[nodiscard]] std::string GetID() const override;
    [[nodiscard]] const resource_core::BaseMsgID& GetBaseMsgIDObj() const override;

protected:
    explicit StorageException(resource_core::BaseMsgID id);

private:
    resource_core::BaseMsgID id_;
};

class FOUNDATION_STORAGE_API Exception : public StorageException {
public:
    enum Code : int {
        InvalidLocation = 1,
        PermissionDenied = 2,
        AlreadyExists = 3,
        NotFound = 4,
        OtherIOError = 5,
    };

    // Codes outside 1..5 are kept as given and reported with the I/O text.
    Exception(int code, const AbsoluteIRI& location, const std::string& osText = {});
    static Exception fromSystemError(int error, const AbsoluteIRI& location);
    ~Exception() override;
    [[nodiscard]] Exception* clone() const override;
    [[noreturn]] void rethrow() const override;

    [[nodiscard]] int getErrorCode() const noexcept { return code_; }
    [[nodiscard]] const AbsoluteIRI& getLocation() const noexcept { return location_; }
    // The operating system's text for code 5 ("" otherwise).
    [[nodiscard]] const std::string& getSystemText() const noexcept { return osText_; }

private:
    int code_;
    AbsoluteIRI location_;
    std::string osText_;
};

class FOUNDATION_STORAGE_API InvalidIRIException : public StorageException {
public:
    explicit InvalidIRIException(const fl::ustring& text);
    ~InvalidIRIException() override;
    [[nodiscard]] InvalidIRIException* clone() const override;
    [[noreturn]] void rethrow() const override;
    [[nodiscard]] const fl::ustring& getInvalidIRIString() const noexcept { return text_; }

private:
    fl::ustring text_;
};

class FOUNDATION_STORAGE_API UnsupportedIRISchemeException : public StorageException {
public:
    UnsupportedIRISchemeException(const fl::ustring& iriText, const fl::ustring& scheme);
    ~UnsupportedIRISchemeException() override;
    [[nodiscard]] UnsupportedIRISchemeException* clone() const override;
    [[noreturn]] void rethrow() const override;
    [[nodiscard]] const fl::ustring& getIRIString() const noexcept { return iri_; }
    [[nodiscard]] const fl::ustring& getScheme() const noexcept { return scheme_; }

private:
    fl::ustring iri_;
    fl::ustring scheme_;
};

}  // namespace foundation::storage::vfs
