#pragma once
// Small helpers shared by the file and link maker tests.
#include "zkfs/test/Arrays.hpp"

#include "fl/i18n/unicode.hpp"
#include "fl/ustring.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

namespace zkfs::test::create {

inline fl::ustring u16(const std::filesystem::path& p) { return fl::i18n::to_ustring(p.native()); }
inline fl::ustring u16(const std::string& s) { return fl::i18n::to_ustring(s); }
inline std::string u8(const fl::ustring& s) { return fl::i18n::to_utf8(s); }

// The "file" IRI text of a local path, as the storage library spells it.
inline fl::ustring fileIRI(const std::filesystem::path& p) {
    return foundation::storage::vfs::toAbsoluteIRI(u"file", u16(p)).toString();
}

// What a link stores, or "" when the name is no link.
inline std::string linkText(const std::filesystem::path& p) {
    std::error_code ec;
    const auto target = std::filesystem::read_symlink(p, ec);
    return ec ? std::string() : target.native();
}

// Arguments all as char rows, or all as string scalars.
inline ArgList texts(const std::vector<fl::ustring>& all, bool asStrings = false) {
    ArgList args;
    for (const fl::ustring& text : all) args.add(asStrings ? stringScalar(text) : charRow(text));
    return args;
}

// Runs a block in another current folder and comes back, even when the block fails.
class InFolder {
public:
    explicit InFolder(const std::filesystem::path& folder)
        : previous_(std::filesystem::current_path()) {
        std::filesystem::current_path(folder);
    }
    InFolder(const InFolder&) = delete;
    InFolder& operator=(const InFolder&) = delete;
    ~InFolder() {
        std::error_code ec;
        std::filesystem::current_path(previous_, ec);
        if (ec) ADD_FAILURE() << "could not return to " << previous_ << ": " << ec.message();
    }

private:
    std::filesystem::path previous_;
};

}  // namespace zkfs::test::create
