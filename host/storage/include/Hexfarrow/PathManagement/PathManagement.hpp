#pragma once
// Between user path texts and IRIs.
//
// - GetIRIFromString(text): an IRI text (hasIRIPrefix) as AbsoluteIRI(text); any other
//   text as toAbsoluteIRI("file", make_native_form(text, true)), so a relative path is
//   taken from the current folder. "" throws vfs::InvalidIRIException.
// - GetStringFromIRI(iri): the local path of a file IRI (fromAbsoluteIRI), else the IRI
//   text.
#include "fl/ustring.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

namespace Hexfarrow::PathManagement {

FOUNDATION_STORAGE_API foundation::storage::vfs::AbsoluteIRI GetIRIFromString(
    const fl::ustring& text);
FOUNDATION_STORAGE_API fl::ustring GetStringFromIRI(
    const foundation::storage::vfs::AbsoluteIRI& iri);

}  // namespace Hexfarrow::PathManagement
