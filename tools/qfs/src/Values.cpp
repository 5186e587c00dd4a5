#include "qfs/Values.hpp"

#include "qfs/Texts.hpp"

#include "Hexfarrow/String/String.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

namespace qfs {
namespace {

using Hexfarrow::String::getMutableString;
using Hexfarrow::String::getString;

std::vector<vqSize> dimsOf(const vqArray* a) {
    return {vqGetDimensions(a), vqGetDimensions(a) + vqGetNumberOfDimensions(a)};
}

bool isEmpty00(const vqArray* a) {
    return vqGetNumberOfDimensions(a) == 2 && vqGetM(a) == 0 && vqGetN(a) == 0;
}

std::vector<std::string> fieldNames(const vqArray* a) { return a->get_struct_field_names(); }

bool sameFieldSet(const vqArray* a, const vqArray* b) {
    auto x = fieldNames(a);
    auto y = fieldNames(b);
    std::sort(x.begin(), x.end());
    std::sort(y.begin(), y.end());
    return x == y;
}

// Checks that every piece is like the first; returns the pieces that take part (0x0 ones
// dropped) and remembers their original positions.
std::vector<std::size_t> likePieces(const std::vector<const vqArray*>& pieces,
                                    std::size_t& failedPiece) {
    std::vector<std::size_t> kept;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (!isEmpty00(pieces[i])) kept.push_back(i);
    }
    if (kept.empty()) return kept;
    const vqArray* first = pieces[kept.front()];
    for (const std::size_t i : kept) {
        const vqArray* p = pieces[i];
        if (vqGetClassID(p) != vqGetClassID(first)) {
            failedPiece = i;
            throw std::invalid_argument(
                tr("values:concatClass",
                   {std::string(vqGetClassName(p)), std::string(vqGetClassName(first))}));
        }
        if (vqIsStruct(p) && !sameFieldSet(p, first)) {
            failedPiece = i;
            throw std::invalid_argument(tr("values:concatFields"));
        }
        if (vqGetNumberOfDimensions(p) != 2) {
            failedPiece = i;
            throw std::invalid_argument(tr("values:concatDims"));
        }
    }
    return kept;
}

unique_vqarray_ptr emptyResult(const std::vector<const vqArray*>& pieces) {
    if (pieces.empty()) return vqCreateDoubleMatrix(0, 0);
    return vqDuplicateArray(pieces.front());
}

}  // namespace

std::string formatDims(const vqArray* a) {
    std::string out;
    const std::size_t n = vqGetNumberOfDimensions(a);
    for (std::size_t i = 0; i < n; ++i) {
        if (i > 0) out += "\u00d7";
        out += std::to_string(vqGetDimensions(a)[i]);
    }
    return out;
}

unique_vqarray_ptr createLike(const vqArray* a, const std::vector<vqSize>& dims) {
    switch (vqGetClassID(a)) {
        case vqCELL_CLASS:
            return vqCreateCellArray(dims);
        case vqSTRUCT_CLASS:
            return vqCreateStructArray(dims, fieldNames(a));
        case vqCHAR_CLASS:
            return vqCreateCharArray(dims);
        case vqSTRING_CLASS:
            return Hexfarrow::String::createStringArray(dims.size(), dims.data());
        default:
            return vqCreateNumericArray(dims, vqGetClassID(a));
    }
}

void copyElement(const vqArray* src, std::size_t from, vqArray* dst, std::size_t to) {
    switch (vqGetClassID(src)) {
        case vqCELL_CLASS: {
            const vqArray* e = vqGetCell(src, from);
            vqSetCell(dst, to, e == nullptr ? nullptr : vqDuplicateArray(e).release());
            return;
        }
        case vqSTRUCT_CLASS: {
            const int nf = vqGetNumberOfFields(dst);
            for (int f = 0; f < nf; ++f) {
                const vqArray* e = vqGetField(src, from, vqGetFieldNameByNumber(dst, f));
                vqSetFieldByNumber(dst, to, f,
                                   e == nullptr ? nullptr : vqDuplicateArray(e).release());
            }
            return;
        }
        case vqSTRING_CLASS: {
            const auto* rec = getString(src).get(from);
            auto& out = getMutableString(dst);
            if (rec == nullptr) {
                out.setMissing(to);
            } else {
                out.set(to, fl::ustring(rec->text, rec->length));
            }
            return;
        }
        default: {
            const std::size_t size = vqGetElementSize(src);
            std::memcpy(static_cast<char*>(vqGetData(dst)) + to * size,
                        static_cast<const char*>(vqGetData(src)) + from * size, size);
            return;
        }
    }
}

unique_vqarray_ptr concatHorizontal(const std::vector<const vqArray*>& pieces,
                                    std::size_t& failedPiece) {
    const auto kept = likePieces(pieces, failedPiece);
    if (kept.empty()) return emptyResult(pieces);
    const vqSize rows = vqGetM(pieces[kept.front()]);
    vqSize cols = 0;
    for (const std::size_t i : kept) {
        if (vqGetM(pieces[i]) != rows) {
            failedPiece = i;
            throw std::invalid_argument(tr("values:rowCounts"));
        }
        cols += vqGetN(pieces[i]);
    }
    auto out = createLike(pieces[kept.front()], {rows, cols});
    // Column-major: the pieces' elements follow one another unchanged.
    std::size_t to = 0;
    for (const std::size_t i : kept) {
        const std::size_t n = vqGetNumberOfElements(pieces[i]);
        for (std::size_t k = 0; k < n; ++k) copyElement(pieces[i], k, out.get(), to++);
    }
    return out;
}

unique_vqarray_ptr concatVertical(const std::vector<const vqArray*>& pieces,
                                  std::size_t& failedPiece) {
    const auto kept = likePieces(pieces, failedPiece);
    if (kept.empty()) return emptyResult(pieces);
    const vqSize cols = vqGetN(pieces[kept.front()]);
    vqSize rows = 0;
    for (const std::size_t i : kept) {
        if (vqGetN(pieces[i]) != cols) {
            failedPiece = i;
            throw std::invalid_argument(
                tr(vqIsChar(pieces[i]) ? "values:charRows" : "values:columnCounts"));
        }
        rows += vqGetM(pieces[i]);
    }
    auto out = createLike(pieces[kept.front()], {rows, cols});
    vqSize rowOffset = 0;
    for (const std::size_t i : kept) {
        const vqSize m = vqGetM(pieces[i]);
        for (vqSize c = 0; c < cols; ++c) {
            for (vqSize r = 0; r < m; ++r) {
                copyElement(pieces[i], c * m + r, out.get(), c * rows + rowOffset + r);
            }
        }
        rowOffset += m;
    }
    return out;
}

unique_vqarray_ptr reshapeArray(const vqArray* x, const std::vector<vqSize>& dims) {
    vqSize count = 1;
    for (const vqSize d : dims) count *= d;
    if (count != vqGetNumberOfElements(x)) {
        throw std::invalid_argument(
            tr("values:reshapeCount", {static_cast<std::int64_t>(vqGetNumberOfElements(x))}));
    }
    // Built element by element rather than by vqReshape, so a string array's own record
    // of its dimensions agrees with the array's.
    auto out = createLike(x, dims);
    for (std::size_t k = 0; k < count; ++k) copyElement(x, k, out.get(), k);
    return out;
}

unique_vqarray_ptr repmatArray(const vqArray* x, const std::vector<vqSize>& reps) {
    std::vector<vqSize> from = dimsOf(x);
    const std::size_t n = std::max(from.size(), reps.size());
    from.resize(n, 1);
    std::vector<vqSize> r = reps;
    r.resize(n, 1);
    std::vector<vqSize> dims(n);
    for (std::size_t d = 0; d < n; ++d) dims[d] = from[d] * r[d];
    auto out = createLike(x, dims);
    const std::size_t total = vqGetNumberOfElements(out.get());
    std::vector<vqSize> sub(n, 0);  // subscripts of the destination element
    for (std::size_t k = 0; k < total; ++k) {
        std::size_t src = 0;
        std::size_t stride = 1;
        for (std::size_t d = 0; d < n; ++d) {
            src += (sub[d] % from[d]) * stride;
            stride *= from[d];
        }
        copyElement(x, src, out.get(), k);
        for (std::size_t d = 0; d < n && ++sub[d] == dims[d]; ++d) sub[d] = 0;
    }
    return out;
}

unique_vqarray_ptr toLogical(const vqArray* x) {
    if (vqIsLogical(x)) return vqDuplicateArray(x);
    if (!vqIsNumeric(x)) {
        throw std::invalid_argument(tr("values:logicalClass", {std::string(vqGetClassName(x))}));
    }
    auto out = vqCreateNumericArray(dimsOf(x), vqLOGICAL_CLASS);
    const std::size_t n = vqGetNumberOfElements(x);
    vqLogical* to = vqGetLogicals(out.get());
    const double* pr = vqGetPr(x);
    for (std::size_t k = 0; k < n; ++k) {
        double v = 0;
        if (pr != nullptr) {
            v = pr[k];
        } else {
            // Other numeric classes: any non-zero byte pattern is a non-zero value, except
            // single, whose NaN must be refused like double's.
            const std::size_t size = vqGetElementSize(x);
            const auto* bytes = static_cast<const unsigned char*>(vqGetData(x)) + k * size;
            if (vqGetClassID(x) == vqSINGLE_CLASS) {
                float f = 0;
                std::memcpy(&f, bytes, sizeof f);
                v = static_cast<double>(f);
            } else {
                v = std::any_of(bytes, bytes + size, [](unsigned char b) { return b != 0; }) ? 1
                                                                                             : 0;
            }
        }
        if (std::isnan(v)) throw std::invalid_argument(tr("values:logicalNaN"));
        to[k] = v != 0;
    }
    return out;
}

Subscript subscriptOf(const vqArray* value) {
    Subscript sub;
    if (!vqIsDouble(value)) throw std::invalid_argument("subscript");
    const std::size_t n = vqGetNumberOfElements(value);
    sub.dims = dimsOf(value);
    sub.at.reserve(n);
    for (std::size_t k = 0; k < n; ++k) {
        const double d = vqGetPr(value)[k];
        if (!(d >= 1) || d != std::floor(d) || d > 1e15) throw std::invalid_argument("subscript");
        sub.at.push_back(static_cast<std::size_t>(d) - 1);
    }
    return sub;
}

namespace {

std::vector<std::size_t> positions(const Subscript& s, std::size_t extent) {
    if (s.all) {
        std::vector<std::size_t> every(extent);
        for (std::size_t k = 0; k < extent; ++k) every[k] = k;
        return every;
    }
    for (const std::size_t k : s.at) {
        if (k >= extent) {
            throw std::out_of_range(tr("index:outOfRange", {static_cast<std::int64_t>(k + 1),
                                                            static_cast<std::int64_t>(extent)}));
        }
    }
    return s.at;
}

}  // namespace

unique_vqarray_ptr indexArray(const vqArray* a, const std::vector<Subscript>& subs, bool brace) {
    if (brace && !vqIsCell(a)) {
        throw std::invalid_argument(tr("index:braceNotCell", {std::string(vqGetClassName(a))}));
    }
    const std::size_t numel = vqGetNumberOfElements(a);
    std::vector<std::size_t> from;
    std::vector<vqSize> dims;
    if (subs.size() == 1) {
        from = positions(subs[0], numel);
        const bool vector = vqGetNumberOfDimensions(a) == 2 && (vqGetM(a) == 1 || vqGetN(a) == 1);
        if (subs[0].all) {
            dims = {from.size(), 1};
        } else if (vector && subs[0].dims.size() == 2 &&
                   (subs[0].dims[0] == 1 || subs[0].dims[1] == 1)) {
            // A vector indexed by a vector keeps its own orientation.
            dims = vqGetM(a) == 1 && numel != 1 ? std::vector<vqSize>{1, from.size()}
                                                : std::vector<vqSize>{from.size(), 1};
            if (numel == 1) dims = subs[0].dims;
        } else {
            dims = subs[0].dims;
        }
    } else {
        const vqSize rows = vqGetM(a);
        const vqSize cols = rows == 0 ? 0 : numel / rows;
        const auto r = positions(subs[0], rows);
        const auto c = positions(subs[1], cols);
        dims = {r.size(), c.size()};
        for (const std::size_t j : c) {
            for (const std::size_t i : r) from.push_back(j * rows + i);
        }
    }
    if (brace) {
        if (from.size() != 1) throw std::invalid_argument(tr("index:braceOne"));
        const vqArray* e = vqGetCell(a, from.front());
        return e == nullptr ? vqCreateDoubleMatrix(0, 0) : vqDuplicateArray(e);
    }
    auto out = createLike(a, dims);
    for (std::size_t k = 0; k < from.size(); ++k) copyElement(a, from[k], out.get(), k);
    return out;
}

namespace {

fl::ustring numberText(double v) {
    if (std::isnan(v)) return u"NaN";
    if (std::isinf(v)) return v > 0 ? u"Inf" : u"-Inf";
    char buf[40];
    // Whole numbers below 2^53 print every digit, not an exponent form.
    const auto r = v == std::trunc(v) && std::fabs(v) < 9007199254740992.0
                       ? std::to_chars(buf, buf + sizeof buf, static_cast<long long>(v))
                       : std::to_chars(buf, buf + sizeof buf, v);
    return {buf, r.ptr};
}

}  // namespace

unique_vqarray_ptr toStringArray(const vqArray* x) {
    if (Hexfarrow::String::isString(x)) return vqDuplicateArray(x);
    if (Hexfarrow::String::isCharRowOrEmpty(x)) {
        return Hexfarrow::String::createStringArray(
            fl::ustring(vqGetChars(x), vqGetNumberOfElements(x)));
    }
    if (!vqIsDouble(x) && !vqIsLogical(x)) {
        throw std::invalid_argument(tr("values:stringClass", {std::string(vqGetClassName(x))}));
    }
    const std::vector<vqSize> dims = dimsOf(x);
    auto out = Hexfarrow::String::createStringArray(dims.size(), dims.data());
    auto& text = getMutableString(out.get());
    for (std::size_t k = 0; k < vqGetNumberOfElements(x); ++k) {
        if (vqIsLogical(x)) {
            text.set(k, vqGetLogicals(x)[k] ? u"true" : u"false");
        } else {
            text.set(k, numberText(vqGetPr(x)[k]));
        }
    }
    return out;
}

}  // namespace qfs
