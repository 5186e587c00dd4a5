// AbsoluteIRI parsing, resolution and path components on arbitrary text, and the path
// constituents of the same text under each convention. Besides "no crash, only
// identified errors", the laws the IRI contract states must hold:
//   - toString() is ASCII, and parsing it again gives the same IRI;
//   - a parent is shorter than its child, so walking up ends;
//   - a file IRI made from an absolute path gives that path back.
#include "FuzzTarget.hpp"
#include "quorin/io/filesystem/quorin/PathConstituents.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

using foundation::storage::vfs::AbsoluteIRI;

[[noreturn]] void finding(const char* what, const fl::ustring& text) {
    std::fprintf(stderr, "finding: %s\n  text: %s\n", what, fl::i18n::to_utf8(text).c_str());
    std::abort();
}

template <typename F>
void expectIdentified(F&& body) {
    try {
        body();
    } catch (const foundation::core::except::IMsgIDException& e) {
        if (e.GetID().empty()) finding("an error without an identifier", u"");
        (void)e.GetUnicodeMessageTxt();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "unidentified exception: %s\n", e.what());
        std::abort();
    } catch (...) {
        std::fprintf(stderr, "a non-standard exception\n");
        std::abort();
    }
}

void checkIRI(const AbsoluteIRI& iri, const fl::ustring& source) {
    const fl::ustring text = iri.toString();
    for (const char16_t c : text) {
        if (c > 0x7f) finding("toString() is not ASCII", source);
    }
    if (!(AbsoluteIRI(text) == iri)) finding("reparsing toString() changed the IRI", source);
    (void)iri.getScheme();
    (void)iri.getAuthority();
    (void)iri.getHost();
    (void)iri.getQuery();
    (void)iri.getFragment();
    (void)iri.getPort();
    (void)iri.getDecodedPath();
    (void)iri.getName();
    AbsoluteIRI up = iri;
    for (int steps = 0; up.hasParent(); ++steps) {
        const AbsoluteIRI parent = up.getParent();
        if (parent.toEncodedString().size() >= up.toEncodedString().size() || steps > 4096) {
            finding("a parent is not shorter than its child", source);
        }
        up = parent;
    }
}

int noSetUp(const std::vector<std::string>&) { return 0; }

int runOne(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    // First byte: where the text splits into a base and a reference. The bytes are read
    // as UTF-8 with the host's escape for bytes that are not, as every host text is.
    const std::size_t split = data[0] % size;
    const std::string_view all(reinterpret_cast<const char*>(data + 1), size - 1);
    const fl::ustring text = fl::i18n::to_ustring(all);
    const fl::ustring base = fl::i18n::to_ustring(all.substr(0, split));
    const fl::ustring ref = fl::i18n::to_ustring(all.substr(split));

    expectIdentified([&] {
        const AbsoluteIRI iri(text);
        checkIRI(iri, text);
        expectIdentified([&] { checkIRI(iri.getChild(ref), text); });
        expectIdentified([&] { (void)foundation::storage::vfs::fromAbsoluteIRI(iri); });
    });
    expectIdentified([&] {
        const AbsoluteIRI resolved(AbsoluteIRI(base), ref);
        checkIRI(resolved, text);
    });
    (void)foundation::storage::vfs::hasIRIPrefix(text);
    if (!text.empty() && text.front() == u'/' && text.find(u'\0') == fl::ustring::npos) {
        expectIdentified([&] {
            const AbsoluteIRI file = foundation::storage::vfs::toAbsoluteIRI(u"file", text);
            checkIRI(file, text);
            if (foundation::storage::vfs::fromAbsoluteIRI(file) != text) {
                finding("a file IRI does not give its path back", text);
            }
        });
    }
    for (const char16_t* convention : {u"windows", u"unix", u"schema", u""}) {
        expectIdentified([&] {
            (void)quorin::io::filesystem::quorin::getPathConstituentsCaller(text, convention);
        });
    }
    return 0;
}

}  // namespace

zkfs::fuzz::Target zkfs::fuzz::iriTarget() { return {"iri", noSetUp, runOne}; }
