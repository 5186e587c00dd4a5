#include "Hexfarrow/PathManagement/PathManagement.hpp"

#include "IRIText.hpp"

#include "fl/filesystem/filesystem.hpp"
#include "foundation/storage/vfs/Exception.hpp"

namespace Hexfarrow::PathManagement {

using foundation::storage::vfs::AbsoluteIRI;

AbsoluteIRI GetIRIFromString(const fl::ustring& text) {
    if (text.empty()) throw foundation::storage::vfs::InvalidIRIException(text);
    if (foundation::storage::vfs::hasIRIPrefix(text)) return AbsoluteIRI(text);
    return foundation::storage::vfs::toAbsoluteIRI(
        u"file", fl::filesystem::detail::make_native_form(text, true));
}

fl::ustring GetStringFromIRI(const AbsoluteIRI& iri) {
    const std::string& text = iri.toEncodedString();
    if (foundation::storage::detail::iequalsAscii(std::string_view(text).substr(0, text.find(':')),
                                                  "file")) {
        return foundation::storage::vfs::fromAbsoluteIRI(iri);
    }
    return iri.toString();
}

}  // namespace Hexfarrow::PathManagement
