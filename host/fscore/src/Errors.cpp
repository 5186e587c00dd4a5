#include "quorin/io/filesystem/core/Errors.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"

namespace quorin::io::filesystem::core::detail {
namespace {

struct Captured {
    std::string id;
    fl::ustring text;
};

// Rethrowing is the only portable way to look inside an exception pointer.
template <class Ptr, class Rethrow>
Captured inspect(const Ptr& error, Rethrow rethrow) {
    if (!error) return {};
    try {
        rethrow(error);
    } catch (const foundation::core::except::IMsgIDException& e) {
        return {e.GetID(), e.GetUnicodeMessageTxt()};
    } catch (const std::exception& e) {
        return {{}, fl::i18n::to_ustring(e.what())};
    } catch (...) {
    }
    return {};
}

Captured inspect(const std::exception_ptr& error) {
    return inspect(error, [](const std::exception_ptr& p) { std::rethrow_exception(p); });
}

Captured inspect(const boost::exception_ptr& error) {
    return inspect(error, [](const boost::exception_ptr& p) { boost::rethrow_exception(p); });
}

}  // namespace

std::string GetID(const std::exception_ptr& error) { return inspect(error).id; }
std::string GetID(const boost::exception_ptr& error) { return inspect(error).id; }
std::string GetID(const foundation::core::except::IMsgIDException& error) { return error.GetID(); }

fl::ustring GetUnicodeMessageTxt(const std::exception_ptr& error) { return inspect(error).text; }
fl::ustring GetUnicodeMessageTxt(const boost::exception_ptr& error) { return inspect(error).text; }
fl::ustring GetUnicodeMessageTxt(const foundation::core::except::IMsgIDException& error) {
    return error.GetUnicodeMessageTxt();
}

}  // namespace quorin::io::filesystem::core::detail
