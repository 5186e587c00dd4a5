#pragma once
// Identifier and message text of a captured error, for callers that report failures as
// data instead of throwing them.
//
// For an identified error (IMsgIDException): its identifier and its catalog text in the
// global locale, holes filled. For any other std::exception: an empty identifier and the
// what() text. For anything else, or an empty pointer: an empty identifier and an empty
// text. Never throws anything but std::bad_alloc.
#include "fl/ustring.hpp"

#include <boost/exception_ptr.hpp>

#include <exception>
#include <string>

namespace foundation::core::except {
class IMsgIDException;
}

namespace quorin::io::filesystem::core::detail {

std::string GetID(const std::exception_ptr& error);
std::string GetID(const boost::exception_ptr& error);
std::string GetID(const foundation::core::except::IMsgIDException& error);

fl::ustring GetUnicodeMessageTxt(const std::exception_ptr& error);
fl::ustring GetUnicodeMessageTxt(const boost::exception_ptr& error);
fl::ustring GetUnicodeMessageTxt(const foundation::core::except::IMsgIDException& error);

}  // namespace quorin::io::filesystem::core::detail
