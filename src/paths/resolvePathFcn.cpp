// resolvePathFcn and resolvePathFcnWithAttributes: what each of many paths names.
//
// A path the core cannot resolve is not an error; its element says "None". Only option
// errors and a path input of the wrong kind are raised, options first.
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include "validation/NameValueOptions.hpp"

#include "Hexfarrow/String/String.hpp"
#include "foundation/storage/vfs/Exception.hpp"
#include "matrix/matrix.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/ResolvePath.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

namespace quorin::io::filesystem::quorin {
namespace {

namespace core = ::quorin::io::filesystem::core;
namespace gw = ::quorin::gateway;
namespace vfs = foundation::storage::vfs;
using core::ResolvePathOptions;

// Field numbers, in the order the struct is created with.
enum Field : int { ResolvedPath = 0, Type, Readable, Writable, LastModified, Size };

const fl::ustring& typeText(std::int32_t code) {
    static const fl::ustring file = u"File";
    static const fl::ustring folder = u"Folder";
    static const fl::ustring link = u"SymbolicLink";
    static const fl::ustring none = u"None";
    switch (code) {
        case core::PathType::File: return file;
        case core::PathType::Folder: return folder;
        case core::PathType::SymbolicLink: return link;
        default: return none;
    }
}

void setField(vqArray* s, std::size_t i, Field f, unique_vqarray_ptr value) {
    vqSetFieldByNumber(s, i, f, value.release());  // the struct owns it even if this throws
}

// Whole milliseconds since 1970-01-01 00:00:00, truncated toward zero; NaN for a time the
// core could not tell.
double millisecondsSinceEpoch(const boost::posix_time::ptime& t) {
    if (t.is_not_a_date_time()) return std::numeric_limits<double>::quiet_NaN();
    if (t.is_pos_infinity()) return std::numeric_limits<double>::infinity();
    if (t.is_neg_infinity()) return -std::numeric_limits<double>::infinity();
    static const boost::posix_time::ptime epoch(boost::gregorian::date(1970, 1, 1));
    const std::int64_t micros = (t - epoch).total_microseconds();
    return static_cast<double>(micros / 1000);  // integer division truncates toward zero
}

void fillBasic(vqArray* s, std::size_t i, const core::ResolvePathResult& r) {
    setField(s, i, ResolvedPath, Hexfarrow::String::createStringArray(r.path));
    setField(s, i, Type, Hexfarrow::String::createStringArray(typeText(r.type)));
}

void fillAttributes(vqArray* s, std::size_t i, const core::ResolvePathResultWithAttributes& r) {
    fillBasic(s, i, r);
    setField(s, i, Readable, vqCreateLogicalScalar(r.readable));
    setField(s, i, Writable, vqCreateLogicalScalar(r.writable));
    setField(s, i, LastModified, vqCreateDoubleScalar(millisecondsSinceEpoch(r.lastModified)));
    setField(s, i, Size, vqCreateDoubleScalar(static_cast<double>(r.size)));
}

struct Basic {
    static std::vector<std::string> fields() { return {"ResolvedPath", "Type"}; }
    static void resolveInto(vqArray* s, std::size_t i, const fl::ustring& path,
                            const ResolvePathOptions& options) {
        try {
            fillBasic(s, i, core::resolvePath(path, options));
        } catch (const vfs::Exception&) {
            fillBasic(s, i, core::ResolvePathResult{});
        } catch (const vfs::UnsupportedIRISchemeException&) {
            fillBasic(s, i, core::ResolvePathResult{});
        }
    }
};

struct WithAttributes {
    static std::vector<std::string> fields() {
        return {"ResolvedPath", "Type", "Readable", "Writable", "LastModified", "Size"};
    }
    static void resolveInto(vqArray* s, std::size_t i, const fl::ustring& path,
                            const ResolvePathOptions& options) {
        try {
            fillAttributes(s, i, core::resolvePathWithAttributes(path, options));
        } catch (const vfs::Exception&) {
            fillAttributes(s, i, core::ResolvePathResultWithAttributes{});
        } catch (const vfs::UnsupportedIRISchemeException&) {
            fillAttributes(s, i, core::ResolvePathResultWithAttributes{});
        }
    }
};

template <class Variant>
void resolveGateway(int outCount, unique_vqarray_ptr* outputs, int argCount,
                    const vqArray* const* args) {
    gw::checkCounts(outCount, argCount, 1, 1, gw::kNoLimit);
    // Options before the path input: an option error wins over a bad path.
    const ResolvePathOptions options =
        ::quorin::io::common::validation::parseResolvePathOptions(args, argCount);

    const vqArray* paths = args[0];
    unique_vqarray_ptr result =
        matrix::detail::do_create_struct(gw::textResultDims(paths), Variant::fields());
    vqArray* s = result.get();
    fl::ustring path;
    gw::forEachText(paths, [&](std::size_t i,
                                            const std::optional<fl::ustring_view>& text) {
        if (!text) return;  // a missing string keeps its element's empty fields
        path.assign(text->begin(), text->end());
        Variant::resolveInto(s, i, path, options);
    });
    gw::handOver(outputs, 0, std::move(result));
}

}  // namespace

void resolvePathFcn(int outCount, unique_vqarray_ptr* outputs, int argCount,
                    const vqArray* const* args) {
    resolveGateway<Basic>(outCount, outputs, argCount, args);
}

void resolvePathFcnWithAttributes(int outCount, unique_vqarray_ptr* outputs, int argCount,
                                  const vqArray* const* args) {
    resolveGateway<WithAttributes>(outCount, outputs, argCount, args);
}

}  // namespace quorin::io::filesystem::quorin
