// resolvePathFcn and resolvePathFcnWithAttributes: what each of many paths names.
//
// A path the core cannot resolve is not an error; its element says "None". Only option
// errors and a path input of the wrong kind are raised, options first.
#include "SharedScalar.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/ResolvePath.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "validation/NameValueOptions.hpp"

#include "Hexfarrow/String/String.hpp"
#include "foundation/storage/vfs/Exception.hpp"
#include "matrix/matrix.hpp"

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace quorin::io::filesystem::quorin {
namespace {

namespace core = ::quorin::io::filesystem::core;
namespace gw = ::quorin::gateway;
namespace vfs = foundation::storage::vfs;
using core::ResolvePathOptions;

// Field numbers, in the order the struct is created with.
enum Field : int { ResolvedPath = 0, Type, Readable, Writable, LastModified, Size };

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

// Fills elements of the result. Every value that recurs is one array shared between the
// elements that hold it: the type texts, the flags, a path met again ("" above all), a time
// or size met again (NaN and 0 above all), so that a result of paths that name nothing
// costs little more than its field slots.
class ElementWriter {
public:
    explicit ElementWriter(vqArray* s) : s_(s) {}

    void fill(std::size_t i, const core::ResolvePathResult& r) {
        set(i, ResolvedPath, paths_.reference(r.path));
        set(i, Type, type(r.type).reference());
    }

    void fill(std::size_t i, const core::ResolvePathResultWithAttributes& r) {
        fill(i, static_cast<const core::ResolvePathResult&>(r));
        set(i, Readable, (r.readable ? yes_ : no_).reference());
        set(i, Writable, (r.writable ? yes_ : no_).reference());
        set(i, LastModified, numbers_.reference(millisecondsSinceEpoch(r.lastModified)));
        set(i, Size, numbers_.reference(static_cast<double>(r.size)));
    }

private:
    void set(std::size_t i, Field f, vqArray* value) const {
        vqSetFieldByNumber(s_, i, f, value);  // the struct owns it even if this throws
    }

    [[nodiscard]] const SharedScalar& type(std::int32_t code) const {
        switch (code) {
            case core::PathType::File:
                return file_;
            case core::PathType::Folder:
                return folder_;
            case core::PathType::SymbolicLink:
                return link_;
            default:
                return none_;
        }
    }

    vqArray* s_;
    SharedScalar file_{Hexfarrow::String::createStringArray(u"File")};
    SharedScalar folder_{Hexfarrow::String::createStringArray(u"Folder")};
    SharedScalar link_{Hexfarrow::String::createStringArray(u"SymbolicLink")};
    SharedScalar none_{Hexfarrow::String::createStringArray(u"None")};
    SharedScalar yes_{vqCreateLogicalScalar(true)};
    SharedScalar no_{vqCreateLogicalScalar(false)};
    SharedTexts paths_;
    SharedNumbers numbers_;
};

// A path the core cannot reach through storage is answered as one that is not there.
struct Basic {
    static std::vector<std::string> fields() { return {"ResolvedPath", "Type"}; }
    static void resolveInto(ElementWriter& w, std::size_t i, const fl::ustring& path,
                            const ResolvePathOptions& options) {
        try {
            w.fill(i, core::resolvePath(path, options));
        } catch (const vfs::Exception&) {
            w.fill(i, core::ResolvePathResult{});
        } catch (const vfs::UnsupportedIRISchemeException&) {
            w.fill(i, core::ResolvePathResult{});
        }
    }
};

struct WithAttributes {
    static std::vector<std::string> fields() {
        return {"ResolvedPath", "Type", "Readable", "Writable", "LastModified", "Size"};
    }
    static void resolveInto(ElementWriter& w, std::size_t i, const fl::ustring& path,
                            const ResolvePathOptions& options) {
        try {
            w.fill(i, core::resolvePathWithAttributes(path, options));
        } catch (const vfs::Exception&) {
            w.fill(i, core::ResolvePathResultWithAttributes{});
        } catch (const vfs::UnsupportedIRISchemeException&) {
            w.fill(i, core::ResolvePathResultWithAttributes{});
        }
    }
};

template <class Variant, auto Gateway>
void resolveGateway(int outCount, unique_vqarray_ptr* outputs, int argCount,
                    const vqArray* const* args) {
    gw::checkCounts<Gateway>(outCount, argCount);
    // Options before the path input: an option error wins over a bad path.
    const ResolvePathOptions options =
        ::quorin::io::common::validation::parseResolvePathOptions(args, argCount);

    const vqArray* paths = args[0];
    unique_vqarray_ptr result =
        matrix::detail::do_create_struct(gw::textResultDims(paths), Variant::fields());
    ElementWriter writer(result.get());
    fl::ustring path;
    gw::forEachText(paths, [&](std::size_t i, const std::optional<fl::ustring_view>& text) {
        if (!text) return;  // a missing string keeps its element's empty fields
        path.assign(text->begin(), text->end());
        Variant::resolveInto(writer, i, path, options);
    });
    gw::handOver(outputs, 0, std::move(result));
}

}  // namespace

void resolvePathFcn(int outCount, unique_vqarray_ptr* outputs, int argCount,
                    const vqArray* const* args) {
    resolveGateway<Basic, &resolvePathFcn>(outCount, outputs, argCount, args);
}

void resolvePathFcnWithAttributes(int outCount, unique_vqarray_ptr* outputs, int argCount,
                                  const vqArray* const* args) {
    resolveGateway<WithAttributes, &resolvePathFcnWithAttributes>(outCount, outputs, argCount,
                                                                  args);
}

}  // namespace quorin::io::filesystem::quorin
