#pragma once
// Absolute IRIs: the names of every storage location.
//
// An AbsoluteIRI holds RFC 3986 text: non-ASCII characters, spaces and characters that
// may not appear raw are percent-encoded as UTF-8 when the value is built, so toString()
// always gives URI text. Values are immutable and cheap to copy.
//
// Contract:
// - AbsoluteIRI(text) accepts an IRI with a scheme of two or more characters (so "C:\x"
//   is no IRI) or an absolute local path (starting with "/"), read as that path's file
//   IRI. A lone "%" (not followed by two hex digits) is taken literally, except in a
//   "file:" IRI, which names a file by its decoded path (RFC 8089): there it throws
//   InvalidIRIException. "file:/p" (no authority) is stored as "file:///p". Anything
//   else (a relative path, "", a malformed IRI) throws InvalidIRIException carrying the
//   text.
// - AbsoluteIRI(base, relative) resolves a reference as RFC 3986 section 5.2; surplus
//   ".." segments above the root are dropped (section 5.4.2). Throws InvalidIRIException
//   (carrying the relative text) when the reference does not parse.
// - toAbsoluteIRI(scheme, path): an absolute local path becomes "<scheme>:///<path>"
//   with every byte outside the RFC 3986 segment set percent-encoded (so "%", "#", "?"
//   and spaces in a name survive); "" becomes "<scheme>://", an IRI naming nothing, on
//   which every storage operation fails with code 1. A relative path throws
//   InvalidIRIException.
// - fromAbsoluteIRI(iri): the local path of a file IRI (authority empty or "localhost"),
//   percent-decoded; a name that is not UTF-8 comes back as lone surrogates
//   U+DC80..U+DCFF. Throws UnsupportedIRISchemeException for another scheme and
//   InvalidIRIException for another authority or an encoded NUL or "/" inside a name.
// - hasIRIPrefix(text): the text starts with a scheme of two or more characters and
//   "://", or with "file:/" (RFC 8089, no authority). It never throws.
// No function here touches the file system.
#include "fl/ustring.hpp"

#include <string>
#include <string_view>

#define FOUNDATION_STORAGE_API __attribute__((visibility("default")))

namespace foundation::storage::vfs {

class FOUNDATION_STORAGE_API AbsoluteIRI {
public:
    explicit AbsoluteIRI(const fl::ustring& text);
    AbsoluteIRI(const AbsoluteIRI& base, const fl::ustring& relative);

    // RFC 3986 text (ASCII only).
    [[nodiscard]] fl::ustring toString() const;
    [[nodiscard]] const std::string& toEncodedString() const noexcept { return text_; }

    // Scheme as written (its case is kept; compare case-insensitively).
    [[nodiscard]] fl::ustring getScheme() const;
    // Authority, host, path, query and fragment in their encoded form; an absent query or
    // fragment is "" (use hasQuery/hasFragment to tell "?" from nothing).
    [[nodiscard]] fl::ustring getAuthority() const;
    [[nodiscard]] fl::ustring getHost() const;
    [[nodiscard]] fl::ustring getPath() const;
    [[nodiscard]] fl::ustring getQuery() const;
    [[nodiscard]] fl::ustring getFragment() const;
    [[nodiscard]] bool hasQuery() const;
    [[nodiscard]] bool hasFragment() const;
    // The port number, or -1 when there is none.
    [[nodiscard]] long getPort() const;
    // Percent-decoded path (UTF-8 decoding with the surrogate escape).
    [[nodiscard]] fl::ustring getDecodedPath() const;
    // Percent-decoded last path segment; "" for the root or an empty path.
    [[nodiscard]] fl::ustring getName() const;

    // A parent exists when the path has a segment below the root; the parent drops the
    // last segment (and a trailing "/"), the query and the fragment.
    [[nodiscard]] bool hasParent() const;
    [[nodiscard]] AbsoluteIRI getParent() const;
    // The location of the entry `name` (a single raw segment, encoded here) inside this
    // location; query and fragment are dropped.
    [[nodiscard]] AbsoluteIRI getChild(const fl::ustring& name) const;

    // Exact comparison of the RFC 3986 text.
    friend bool operator==(const AbsoluteIRI& a, const AbsoluteIRI& b) noexcept {
        return a.text_ == b.text_;
    }

    // For the storage library only: text already known to be valid RFC 3986 text.
    static AbsoluteIRI fromTrustedText(std::string text);

private:
    AbsoluteIRI() = default;
    std::string text_;
};

FOUNDATION_STORAGE_API bool hasIRIPrefix(const fl::ustring& text) noexcept;
FOUNDATION_STORAGE_API AbsoluteIRI toAbsoluteIRI(const fl::ustring& scheme,
                                                 const fl::ustring& path);
FOUNDATION_STORAGE_API fl::ustring fromAbsoluteIRI(const AbsoluteIRI& iri);

}  // namespace foundation::storage::vfs

#include "foundation/storage/vfs/Exception.hpp"
