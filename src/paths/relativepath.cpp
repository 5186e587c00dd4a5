// relativepath: each destination expressed relative to one source, by the filesystem
// core's rules; the result takes the destination's shape.
#include "quorin/io/filesystem/core/RelativePath.hpp"

#include "quorin/gateway/Errors.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <cstddef>
#include <exception>
#include <optional>
#include <utility>

namespace {

namespace core = quorin::io::filesystem::core;
namespace vfs = foundation::storage::vfs;
namespace rp = QUORIN::io::filesystem::relativepath;
using quorin::gateway::throwError;

// How an operand holds its text(s).
enum class Form { String, Char, Cell };

using Text = std::optional<fl::ustring_view>;  // nullopt: a missing string

fl::ustring_view charsOf(const vqArray* a) noexcept {
    return {vqGetChars(a), vqGetNumberOfElements(a)};
}

// The source passed isScalarText(a, false, true): a string scalar, a char row vector (or
// 0x0), or a 1x1 cell holding one.
Form sourceForm(const vqArray* a) noexcept {
    if (Hexfarrow::String::isString(a)) return Form::String;
    return vqIsChar(a) ? Form::Char : Form::Cell;
}

bool isCellOfCharRows(const vqArray* a) noexcept {
    if (!vqIsCell(a)) return false;
    const std::size_t n = vqGetNumberOfElements(a);
    for (std::size_t i = 0; i < n; ++i) {
        if (!Hexfarrow::String::isCharRowOrEmpty(vqGetCell(a, i))) return false;
    }
    return true;
}

// The whole destination is checked before any path is computed, so a bad cell late in
// the array costs nothing.
Form destinationForm(const vqArray* a) {
    if (Hexfarrow::String::isScalarText(a, false, true)) return sourceForm(a);
    if (isCellOfCharRows(a)) return Form::Cell;
    if (Hexfarrow::String::isString(a)) return Form::String;
    throwError<rp::InvalidDestinationPathType>();
}

// Element i of an operand of the given form; the char form has the one element 0.
template <Form F>
Text textAt(const vqArray* a, std::size_t i) {
    if constexpr (F == Form::String) {
        const auto* rec = Hexfarrow::String::getString(a).get(i);
        return rec == nullptr ? Text() : Text(fl::ustring_view(rec->text, rec->length));
    } else if constexpr (F == Form::Char) {
        return charsOf(a);
    } else {
        return charsOf(vqGetCell(a, i));
    }
}

// The relative path of one destination, or the destination itself when the core cannot
// relate the two for any reason but an invalid location.
fl::ustring relativeOf(const fl::ustring& source, const fl::ustring& destination) {
    std::optional<fl::ustring> invalid;
    try {
        return core::relative_path(source, destination);
    } catch (const vfs::InvalidIRIException& e) {
        invalid = e.getInvalidIRIString();
    } catch (const std::exception&) {
        // No common root, say: the destination as given is the best answer there is.
        return destination;
    }
    throwError<rp::InvalidAbsolutePath>(*invalid);
}

// One walk per pair of forms: only how the two texts are read differs.
template <Form S, Form D>
void relateAll(const vqArray* sourceArg, const vqArray* destinationArg,
               Hexfarrow::String::String& out) {
    const Text sourceView = textAt<S>(sourceArg, 0);
    const fl::ustring source = sourceView ? fl::ustring(*sourceView) : fl::ustring();
    fl::ustring destination;  // one buffer for the whole walk
    const std::size_t n = out.numel();
    for (std::size_t i = 0; i < n; ++i) {
        const Text d = textAt<D>(destinationArg, i);
        if (!sourceView || !d) throwError<QUORIN::string::MissingNotSupported>();
        destination.assign(*d);
        out.set(i, relativeOf(source, destination));
    }
}

template <Form S>
void relateAllFrom(Form d, const vqArray* source, const vqArray* destination,
                   Hexfarrow::String::String& out) {
    switch (d) {
        case Form::String:
            return relateAll<S, Form::String>(source, destination, out);
        case Form::Char:
            return relateAll<S, Form::Char>(source, destination, out);
        case Form::Cell:
            return relateAll<S, Form::Cell>(source, destination, out);
    }
}

}  // namespace

void relativepath(int outCount, unique_vqarray_ptr* outputs, int argCount, const vqArray** args) {
    quorin::gateway::checkCounts<&relativepath>(outCount, argCount);
    const vqArray* source = args[0];
    const vqArray* destination = args[1];

    // The source is judged first: a bad source wins over a bad destination.
    if (!Hexfarrow::String::isScalarText(source, false, true)) {
        throwError<rp::InvalidSourcePathType>();
    }
    const Form s = sourceForm(source);
    const Form d = destinationForm(destination);

    unique_vqarray_ptr result =
        d == Form::Char ? Hexfarrow::String::createStringArray(1, 1)
                        : Hexfarrow::String::createStringArray(vqGetNumberOfDimensions(destination),
                                                               vqGetDimensions(destination));
    auto& out = Hexfarrow::String::getMutableString(result.get());
    switch (s) {
        case Form::String:
            relateAllFrom<Form::String>(d, source, destination, out);
            break;
        case Form::Char:
            relateAllFrom<Form::Char>(d, source, destination, out);
            break;
        case Form::Cell:
            relateAllFrom<Form::Cell>(d, source, destination, out);
            break;
    }
    quorin::gateway::handOver(outputs, 0, std::move(result));
}
