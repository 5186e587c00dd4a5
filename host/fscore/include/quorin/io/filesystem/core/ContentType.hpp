#pragma once
// The media type of a location.
//
// Order: an existing local folder is "inode/directory"; otherwise the dotted suffixes of
// the last component, compared case-insensitively and longest first ("tar.gz" before
// "gz"), are looked up in our own table of data formats that system tables lack
// (".parquet", ".h5", ...), then in /etc/mime.types, then in shared-mime-info's globs,
// whose literal file names ("Makefile") count too; failing
// those, an existing local file is sniffed by content (libmagic); else
// "application/octet-stream". IRIs are looked up by the extension of their path; a
// "file:" IRI is also sniffed as a local file. Missing system tables are skipped.
//
// The tables and the magic database load once per process, on first use; the function is
// safe to call from several threads. Throws nothing but std::bad_alloc: an unreadable
// file is simply not sniffed.
#include "fl/ustring.hpp"

namespace quorin::io::filesystem::core {

fl::ustring getContentTypeCaller(const fl::ustring& path);

}  // namespace quorin::io::filesystem::core
