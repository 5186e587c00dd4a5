// Everything of the core that needs no file system: path and URL components per
// convention, relative locations, the "ReplacementRule" option, captured-error texts, the
// catalog entries of the core's identifiers, and the logger.
#include "quorin/io/filesystem/core/Errors.hpp"
#include "quorin/io/filesystem/core/Identifiers.hpp"
#include "quorin/io/filesystem/core/Log.hpp"
#include "quorin/io/filesystem/core/PathComponents.hpp"
#include "quorin/io/filesystem/core/RelativePath.hpp"
#include "quorin/io/filesystem/core/ReplacementRule.hpp"
#include "zkfs/test/Errors.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <boost/exception_ptr.hpp>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

namespace core = quorin::io::filesystem::core;
namespace ids = QUORIN::io::filesystem::core;
namespace vfs = foundation::storage::vfs;
using core::FileSystemType;
using foundation::core::except::Exception;

namespace {

constexpr std::uint64_t none = core::PathComponents::noPort;
// "parent|name|extension", then " @host:port?query#fragment" when any of those is set.
fl::ustring summary(const core::PathComponents& c) {
    fl::ustring s = c.parent + u'|' + c.name + u'|' + c.extension;
    if (!c.host.empty() || c.port != none || !c.query.empty() || !c.fragment.empty())
        s += u" @" + c.host + u':' +
             (c.port == none ? fl::ustring() : fl::i18n::to_ustring(std::to_string(c.port))) +
             u'?' + c.query + u'#' + c.fragment;
    return s;
}

// Source, destination, and the answer of relative().
using Route = std::tuple<const char16_t*, const char16_t*, const char16_t*>;
// The relative location, "invalid: <the text named>" or "no common root".
fl::ustring relative(const fl::ustring& source, const fl::ustring& destination) {
    try {
        return core::relative_path(source, destination);
    } catch (const vfs::InvalidIRIException& e) {
        return u"invalid: " + e.getInvalidIRIString();
    } catch (const std::invalid_argument&) {
        return u"no common root";
    }
}

const char* const Name = "QUORIN:io:filesystem:core:InvalidReplacementRuleName";
const char* const Value = "QUORIN:io:filesystem:core:InvalidReplacementRuleValue";
const char* const Ambiguous = "QUORIN:io:filesystem:core:AmbiguousReplacementRuleValue";

// Name, value, the identifier of the error (nullptr: accepted), and the canonical value or
// the error's argument.
using Rule = std::tuple<const char16_t*, const char16_t*, const char*, const char16_t*>;

}  // namespace

TEST(PathComponents, EveryConvention) {
    constexpr auto U = FileSystemType::Unix;
    constexpr auto W = FileSystemType::Windows;
    constexpr auto S = FileSystemType::Schema;
    constexpr auto N = FileSystemType::Native;
    struct Row {
        const char16_t* input;
        FileSystemType type;
        bool isUrl;
        const char16_t* components;
        const char16_t* pathType;
        bool absolute;
    };
    const Row rows[] = {
        {u"", U, false, u"||", u"Local", false},
        {u".", U, false, u"|.|", u"Local", false},
        {u"..", U, false, u"|..|", u"Local", false},
        {u"/", U, false, u"/||", u"Local", true},
        {u"//host", U, false, u"//|host|", u"Local", true},
        {u"C:", U, false, u"|C:|", u"Local", false},
        {u"C:\\x\\y.txt", U, false, u"|C:\\x\\y|.txt", u"Local", false},
        {u"/a/b.txt", U, false, u"/a|b|.txt", u"Local", true},
        {u"a/b.tar.gz", U, false, u"a|b.tar|.gz", u"Local", false},
        {u"/a/b/", U, false, u"/a|b|", u"Local", true},
        {u"/a//b", U, false, u"/a|b|", u"Local", true},
        {u"/home/.bashrc", U, false, u"/home|.bashrc|", u"Local", true},
        {u"..x", U, false, u"|..x|", u"Local", false},
        {u".config.old", U, false, u"|.config|.old", u"Local", false},
        {u"file.", U, false, u"|file|.", u"Local", false},
        {u"/a.d/b", U, false, u"/a.d|b|", u"Local", true},
        {u"/données/été.csv", U, false, u"/données|été|.csv", u"Local", true},
        {u"/\xDCFF\xDCFE.bin", U, false, u"/|\xDCFF\xDCFE|.bin", u"Local", true},
        // A URL is read by URL rules whatever the convention.
        {u"http://h:8080/x.y", U, true, u"http://h:8080/|x|.y @h:8080?#", u"URL", true},

        {u"", W, false, u"||", u"Local", false},
        {u".", W, false, u"|.|", u"Local", false},
        {u"//host", W, false, u"//host|| @host:?#", u"UNC", true},
        {u"C:", W, false, u"C:||", u"Local", false},
        {u"C:\\", W, false, u"C:\\||", u"Local", true},
        {u"c:/", W, false, u"c:/||", u"Local", true},
        {u"C:a.txt", W, false, u"C:|a|.txt", u"Local", false},
        {u"C:\\a", W, false, u"C:\\|a|", u"Local", true},
        {u"\\x\\y", W, false, u"\\x|y|", u"Local", false},
        {u"dir\\sub/f.tar", W, false, u"dir\\sub|f|.tar", u"Local", false},
        {u"\\\\server\\share", W, false, u"\\\\server\\share|| @server:?#", u"UNC", true},
        {u"\\\\server\\share\\dir\\f.txt", W, false, u"\\\\server\\share\\dir|f|.txt @server:?#",
         u"UNC", true},
        {u"\\\\server\\share\\f", W, false, u"\\\\server\\share\\|f| @server:?#", u"UNC", true},
        {u"\\\\?\\C:\\long\\p.txt", W, false, u"\\\\?\\C:\\long|p|.txt", u"Local", true},
        {u"\\\\?\\UNC\\srv\\sh\\f", W, false, u"\\\\?\\UNC\\srv\\sh\\|f| @srv:?#", u"UNC", true},
        {u"C:\\Données\\ファイル.txt", W, false, u"C:\\Données|ファイル|.txt", u"Local", true},
        {u"/unix/style", W, false, u"/unix|style|", u"Local", false},

        {u"", S, false, u"||", u"URL", false},
        {u".", S, false, u"|.|", u"URL", false},
        {u"//host", S, false, u"//host|| @host:?#", u"URL", false},
        {u"C:", S, false, u"C:||", u"URL", true},
        {u"http://example.com:8080/a/b.txt?x=1&y=2#top", S, true,
         u"http://example.com:8080/a|b|.txt @example.com:8080?x=1&y=2#top", u"URL", true},
        {u"https://example.com", S, true, u"https://example.com|| @example.com:?#", u"URL", true},
        {u"https://example.com/dir/", S, true, u"https://example.com/|dir| @example.com:?#", u"URL",
         true},
        {u"http://host:/x", S, true, u"http://host:/|x| @host:?#", u"URL", true},
        {u"http://user:pw@h:21/x", S, true, u"http://user:pw@h:21/|x| @h:21?#", u"URL", true},
        {u"http://[::1]:99/f", S, true, u"http://[::1]:99/|f| @[::1]:99?#", u"URL", true},
        {u"http://h/a?q", S, true, u"http://h/|a| @h:?q#", u"URL", true},
        {u"http://h/a#f?g", S, true, u"http://h/|a| @h:?#f?g", u"URL", true},
        {u"http://h/caf%C3%A9.txt", S, true, u"http://h/|caf%C3%A9|.txt @h:?#", u"URL", true},
        {u"http://h/dir/été.csv", S, true, u"http://h/dir|été|.csv @h:?#", u"URL", true},
        {u"s3://bucket/key/data.parquet", S, true, u"s3://bucket/key|data|.parquet @bucket:?#",
         u"URL", true},
        {u"file:///tmp/x.txt", S, true, u"file:///tmp|x|.txt", u"URL", true},
        {u"mailto:a@b.c", S, false, u"mailto:|a@b|.c", u"URL", true},
        {u"/a/b.c", S, false, u"/a|b|.c", u"URL", false},
        {u"1http:x", S, false, u"|1http:x|", u"URL", false},

        // Native is this platform's own convention, or URL rules for a URL.
        {u"/a/b.c", N, false, u"/a|b|.c", u"Local", true},
        {u"C:\\x", N, false, u"|C:\\x|", u"Local", false},
        {u"\\\\server\\share", N, false, u"|\\\\server\\share|", u"Local", false},
        {u"http://h:1/a.b", N, true, u"http://h:1/|a|.b @h:1?#", u"URL", true},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(r.input) + " (type " +
                     std::to_string(static_cast<int>(r.type)) + ", isUrl " +
                     std::to_string(r.isUrl) + ")");
        EXPECT_EQ(summary(core::getPathComponents(r.input, r.isUrl, r.type)),
                  fl::ustring(r.components));
        EXPECT_EQ(core::getPathType(r.input, r.isUrl, r.type), fl::ustring(r.pathType));
        EXPECT_EQ(core::getIsAbsolute(r.input, r.isUrl, r.type), r.absolute);
    }
}

TEST(PathComponents, BadPortIsAnIdentifiedError) {
    for (const char16_t* url :
         {u"http://h:99999/", u"http://h:8a/", u"http://h:-1/", u"http://[::1]x/"}) {
        SCOPED_TRACE(fl::i18n::to_utf8(url));
        EXPECT_IDENTIFIED_ERROR(core::getPathComponents(url, true, FileSystemType::Schema),
                                "QUORIN:io:filesystem:core:InvalidURLPort", fl::ustring(url));
        // The other two queries do not read the port.
        EXPECT_EQ(core::getPathType(url, true, FileSystemType::Schema), u"URL");
        EXPECT_TRUE(core::getIsAbsolute(url, true, FileSystemType::Schema));
    }
    EXPECT_EQ(core::getPathComponents(u"http://h:65535/", true, FileSystemType::Schema).port,
              65535U);
    EXPECT_EQ(core::getPathComponents(u"http://h:0/", true, FileSystemType::Schema).port, 0U);
}

TEST(RelativePath, LocalPathsIRIsAndTheirFailures) {
    const Route rows[] = {
        {u"/", u"/", u"."},
        {u"/a/b", u"/a/b", u"."},
        {u"/a/b/", u"/a/b", u"."},
        {u"/", u"/x", u"x"},
        {u"/x", u"/", u".."},
        {u"/a/b", u"/a/b/c/d.txt", u"c/d.txt"},
        {u"/a/b/c", u"/a/d", u"../../d"},
        {u"/a//b/./", u"/a/b/../c", u"../c"},
        {u"/../a", u"/a/b", u"b"},
        {u"/a/bc", u"/a/b", u"../b"},
        {u"/données/a", u"/données/b/été", u"../b/été"},
        {u"/a/\xDCFF", u"/a/\xDCFF/x", u"x"},
        {u"http://h/a/b", u"http://h/a/b", u"."},
        {u"http://h/a/b", u"http://h/a/c?q=1#f", u"../c?q=1#f"},
        {u"HTTP://H/a", u"http://h/a/b", u"b"},
        {u"http://h:8080/", u"http://h:8080/x/y", u"x/y"},
        {u"file:///a/b", u"file:///a/c", u"../c"},
        {u"http://h/a", u"http://h/a/x:y", u"./x:y"},
        {u"http://h/a", u"http://h/a/sp%20ace", u"sp%20ace"},
        // Invalid locations name the bad text, the source first.
        {u"", u"/a", u"invalid: "},
        {u"a/b", u"/a", u"invalid: a/b"},
        {u"/a", u"b", u"invalid: b"},
        {u"C:\\x", u"/a", u"invalid: C:\\x"},
        {u"rel", u"also-rel", u"invalid: rel"},
        {u"/a", u"http://[::1/x", u"invalid: http://[::1/x"},
        {u"/a", u"http://h/a", u"no common root"},
        {u"file:///a", u"/a", u"no common root"},
        {u"http://a/x", u"http://b/x", u"no common root"},
        {u"http://h/", u"https://h/", u"no common root"},
        {u"http://h:1/", u"http://h:2/", u"no common root"},
    };
    for (const auto& [source, destination, expected] : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(source) + " -> " + fl::i18n::to_utf8(destination));
        EXPECT_EQ(relative(source, destination), fl::ustring(expected));
    }
}

TEST(ReplacementRule, WholeWordsInAnyCaseOnlyAndFailuresLeaveTheTextsAlone) {
    const Rule rows[] = {
        {u"ReplacementRule", u"overwrite", nullptr, u"overwrite"},
        {u"replacementrule", u"OVERWRITE", nullptr, u"overwrite"},
        {u"REPLACEMENTRULE", u"Preserve", nullptr, u"preserve"},
        {u"Replacement", u"overwrite", Name, u"Replacement"},
        {u"", u"overwrite", Name, u""},
        {u"ReplacementRules", u"overwrite", Name, u"ReplacementRules"},
        // The name is checked first.
        {u"Rule", u"bad", Name, u"Rule"},
        {u"ReplacementRule", u"over", Value, u"over"},
        {u"ReplacementRule", u"", Value, u""},
        {u"ReplacementRule", u"overwrite ", Value, u"overwrite "},
        // Folding is ASCII only: a dotless capital I is no "i".
        {u"ReplacementRule", u"overwr\u0130te", Value, u"overwr\u0130te"},
    };
    for (const auto& [givenName, givenValue, error, text] : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(givenName) + "=" + fl::i18n::to_utf8(givenValue));
        fl::ustring name = givenName;
        fl::ustring value = givenValue;
        if (error == nullptr) {
            core::validateReplacementRuleName(name, value);
            EXPECT_EQ(name, u"ReplacementRule");
            EXPECT_EQ(value, fl::ustring(text));
            continue;
        }
        EXPECT_IDENTIFIED_ERROR(core::validateReplacementRuleName(name, value), error,
                                fl::ustring(text));
        EXPECT_EQ(name, fl::ustring(givenName));
        EXPECT_EQ(value, fl::ustring(givenValue));
    }
}

TEST(ReplacementRule, CompletionAcceptsUnambiguousPrefixesOnly) {
    const Rule rows[] = {
        {u"ReplacementRule", u"overwrite", nullptr, u"overwrite"},
        {u"r", u"o", nullptr, u"overwrite"},
        {u"Repl", u"OVER", nullptr, u"overwrite"},
        {u"REPLACEMENTRUL", u"Preserv", nullptr, u"preserve"},
        {u"", u"overwrite", Name, u""},
        {u"ReplacementRuleX", u"o", Name, u"ReplacementRuleX"},
        {u"Mode", u"o", Name, u"Mode"},
        {u"Repl", u"overwritten", Value, u"overwritten"},
        {u"Repl", u"x", Value, u"x"},
        {u"Repl", u"", Ambiguous, u""},
    };
    for (const auto& [givenName, givenValue, error, text] : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(givenName) + "=" + fl::i18n::to_utf8(givenValue));
        if (error == nullptr) {
            EXPECT_EQ(core::validateAndCompleteReplacementRuleNameAndValue(givenName, givenValue),
                      std::make_pair(fl::ustring(u"ReplacementRule"), fl::ustring(text)));
            continue;
        }
        EXPECT_IDENTIFIED_ERROR(
            core::validateAndCompleteReplacementRuleNameAndValue(givenName, givenValue), error,
            fl::ustring(text));
    }
}

TEST(CapturedErrors, IdentifierAndTextOfEachKindOfErrorInEitherPointer) {
    const fl::i18n::ZkLocale saved = fl::i18n::ZkLocale::global();
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale("en_US.UTF-8"));
    const auto invalid = std::make_exception_ptr(Exception<ids::InvalidReplacementRuleValue>(
        ids::InvalidReplacementRuleValue(u"sometimes")));
    const std::tuple<std::exception_ptr, const char*, const char16_t*> rows[] = {
        {invalid, Value,
         u"'sometimes' is not a valid value for 'ReplacementRule'. Use 'overwrite' or "
         u"'preserve'."},
        {std::make_exception_ptr(std::runtime_error("disk on fire")), "", u"disk on fire"},
        {std::make_exception_ptr(42), "", u""},
        {std::exception_ptr(), "", u""},
    };
    for (const auto& [error, id, text] : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(text));
        EXPECT_EQ(core::detail::GetID(error), id);
        EXPECT_EQ(core::detail::GetUnicodeMessageTxt(error), text);
        // Boost wraps a std::exception_ptr, and only inside the handler (it reads
        // std::current_exception() itself); that is how the host's errors travel in one.
        boost::exception_ptr wrapped;
        try {
            if (error) std::rethrow_exception(error);
        } catch (...) {
            wrapped = boost::exception_ptr(std::current_exception());
        }
        EXPECT_EQ(core::detail::GetID(wrapped), id);
        EXPECT_EQ(core::detail::GetUnicodeMessageTxt(wrapped), text);
    }
    // The text follows the caller's catalog language.
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale("de_DE.UTF-8"));
    EXPECT_NE(core::detail::GetUnicodeMessageTxt(invalid).find(u"ist kein gültiger Wert"),
              fl::ustring::npos);
    fl::i18n::ZkLocale::global(saved);
    try {
        std::rethrow_exception(invalid);
    } catch (const foundation::core::except::IMsgIDException& e) {
        EXPECT_EQ(core::detail::GetID(e), Value);
    }
}

TEST(Catalog, EveryCoreIdentifierHasAnEnglishTextWithItsHoles) {
    const resource_core::BaseMsgID all[] = {
        ids::InvalidReplacementRuleName(u"n"),
        ids::InvalidReplacementRuleValue(u"v"),
        ids::AmbiguousReplacementRuleValue(u"v"),
        ids::InvalidURLPort(u"u"),
    };
    for (const auto& id : all) {
        const std::string identifier = foundation::core::except::IMsgIDException::get_error_id(id);
        SCOPED_TRACE(identifier);
        const auto text = fl::i18n::MessageCatalog::find_text(identifier, "en");
        ASSERT_TRUE(text.has_value());
        EXPECT_EQ(fl::i18n::MessageCatalog::hole_count(*text), id.getArgs().size());
    }
}

TEST(Logger, RecordsReachStandardErrorOnlyWhenDebugLoggingIsOn) {
    auto& logger = core::log::getLogger();
    for (const bool on : {false, true, false}) {
        SCOPED_TRACE(on ? "on" : "off");
        core::log::setDebugLogging(on);
        EXPECT_EQ(core::log::isDebugLoggingEnabled(), on);
        ::testing::internal::CaptureStderr();
        BOOST_LOG_SEV(logger, boost::log::trivial::debug) << "debug-marker";
        BOOST_LOG_SEV(core::log::getLogger(), boost::log::trivial::error) << "error-marker";
        const std::string written = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(written.find("debug-marker") != std::string::npos, on) << written;
        EXPECT_EQ(written.find("error-marker") != std::string::npos, on) << written;
        EXPECT_EQ(written.find("debug") != std::string::npos, on) << written;
    }
}
