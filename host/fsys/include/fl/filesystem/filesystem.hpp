#pragma once
// The host's path layer: status queries, link resolution, removal and the native form of
// local paths. Paths are UTF-16; they reach the operating system through
// fl::i18n::to_utf8, so a name that is not valid UTF-8 (held as U+DC80..U+DCFF) is
// passed back byte for byte.
//
// Contract:
// - status(p) follows links. Nothing has the name (ENOENT, ENOTDIR with no entry at p):
//   PathNotFound. EACCES: AccessDenied. The name exists but is a link that cannot be
//   followed (dangling, or a loop): SystemError with code ENOENT. Anything else:
//   SystemError with the errno.
// - symlink_status(p) reads the name itself. Nothing there is not an error: the answer
//   has type() == file_status::not_found. EACCES: AccessDenied; else SystemError.
// - canonical(p, base) resolves every link and every "." and ".." (realpath(3)); a
//   relative p is taken from base, or from the current folder when base is empty.
//   Errors as for status (a dangling link gives PathNotFound).
// - absolute(p) prefixes the current folder to a relative p and changes nothing else.
// - remove(p) removes the name itself (a file, a link, or an empty folder) and answers
//   false when nothing had the name.
// - detail::make_native_form(p, true): absolute, "." segments and repeated "/" removed,
//   ".." kept (dropping it lexically is wrong through links), no trailing "/" except
//   for the root. With false the path stays relative when it is.
// - A path holding U+0000 names nothing: the system reads a name up to its first NUL, so
//   it would act on a shorter path. Every call here, make_native_form and native_bytes
//   throw InvalidName for it, before any system call.
// Nothing here changes the file system except remove(), and a failed call changes
// nothing.
#include "fl/ustring.hpp"
#include "foundation/core/except/Exception.hpp"
#include "resource_core/BaseMsgID.hpp"

#include <cstdint>
#include <exception>
#include <string>

#define FL_FILESYSTEM_API __attribute__((visibility("default")))

namespace fl::filesystem {

// The status of one name. The type word carries the POSIX st_mode bits; mask it with
// file_type_mask to compare with the kinds below (the values are those of <sys/stat.h>,
// checked at build time).
class FL_FILESYSTEM_API file_status {
public:
    enum type_bits : unsigned {
        not_found = 0,
        file_type_mask = 0170000,
        socket_file = 0140000,
        symlink_file = 0120000,
        regular_file = 0100000,
        block_file = 0060000,
        directory_file = 0040000,
        character_file = 0020000,
        fifo_file = 0010000,
    };

    file_status() = default;
    file_status(unsigned mode, std::uint64_t size, std::int64_t mtimeNanoseconds)
        : mode_(mode), size_(size), mtime_(mtimeNanoseconds) {}

    // st_mode as read (0 when nothing has the name).
    [[nodiscard]] unsigned type() const noexcept { return mode_; }
    [[nodiscard]] unsigned kind() const noexcept { return mode_ & file_type_mask; }
    [[nodiscard]] unsigned permissions() const noexcept { return mode_ & 07777U; }
    [[nodiscard]] bool exists() const noexcept { return kind() != not_found; }
    [[nodiscard]] bool is_regular_file() const noexcept { return kind() == regular_file; }
    [[nodiscard]] bool is_directory() const noexcept { return kind() == directory_file; }
    [[nodiscard]] bool is_symlink() const noexcept { return kind() == symlink_file; }
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }
    // Modification time, nanoseconds since the Unix epoch.
    [[nodiscard]] std::int64_t last_write_time() const noexcept { return mtime_; }

private:
    unsigned mode_ = 0;
    std::uint64_t size_ = 0;
    std::int64_t mtime_ = 0;
};

// Base of every path-layer error: an identified error that also names the path.
class FL_FILESYSTEM_API FsysExceptionBase : public foundation::core::except::IMsgIDException,
                                            public std::exception {
public:
    ~FsysExceptionBase() override;
    [[nodiscard]] const char* what() const noexcept override;
    [[nodiscard]] std::string GetID() const override;
    [[nodiscard]] const resource_core::BaseMsgID& GetBaseMsgIDObj() const override;
    [[nodiscard]] const fl::ustring& getPath() const noexcept { return path_; }

protected:
    FsysExceptionBase(resource_core::BaseMsgID id, fl::ustring path);

private:
    resource_core::BaseMsgID id_;
    fl::ustring path_;
};

// "QUORIN:filesystem:accessDenied" (path).
class FL_FILESYSTEM_API AccessDenied : public FsysExceptionBase {
public:
    explicit AccessDenied(const fl::ustring& path);
    ~AccessDenied() override;
    [[nodiscard]] AccessDenied* clone() const override;
    [[noreturn]] void rethrow() const override;
};

// "QUORIN:filesystem:pathNotFound" (path).
class FL_FILESYSTEM_API PathNotFound : public FsysExceptionBase {
public:
    explicit PathNotFound(const fl::ustring& path);
    ~PathNotFound() override;
    [[nodiscard]] PathNotFound* clone() const override;
    [[noreturn]] void rethrow() const override;
};

// "QUORIN:filesystem:systemError" (path, operating-system text, errno).
class FL_FILESYSTEM_API SystemError : public FsysExceptionBase {
public:
    SystemError(int errorCode, const fl::ustring& path);
    ~SystemError() override;
    [[nodiscard]] SystemError* clone() const override;
    [[noreturn]] void rethrow() const override;
    // The errno value that the failed call left.
    [[nodiscard]] int getErrorCode() const noexcept { return code_; }
    [[nodiscard]] int code() const noexcept { return code_; }

private:
    int code_;
};

// "QUORIN:filesystem:invalidName" (path): a name no system call can be given.
class FL_FILESYSTEM_API InvalidName : public FsysExceptionBase {
public:
    explicit InvalidName(const fl::ustring& path);
    ~InvalidName() override;
    [[nodiscard]] InvalidName* clone() const override;
    [[noreturn]] void rethrow() const override;
};

FL_FILESYSTEM_API file_status status(const fl::ustring& path);
FL_FILESYSTEM_API file_status symlink_status(const fl::ustring& path);
FL_FILESYSTEM_API fl::ustring canonical(const fl::ustring& path, const fl::ustring& base);
FL_FILESYSTEM_API fl::ustring absolute(const fl::ustring& path);
FL_FILESYSTEM_API bool remove(const fl::ustring& path);
// The current folder; SystemError when it cannot be read (for example removed).
FL_FILESYSTEM_API fl::ustring current_path();

namespace detail {
FL_FILESYSTEM_API fl::ustring make_native_form(const fl::ustring& path, bool makeAbsolute);
// The bytes the system is given for a path (UTF-8, escaped bytes restored).
FL_FILESYSTEM_API std::string native_bytes(fl::ustring_view path);
}  // namespace detail

}  // namespace fl::filesystem
