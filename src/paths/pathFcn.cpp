// pathFcn and getPathConstituentsCaller: the parts of paths and URLs, read under a
// file-system convention.
//
// No file-system access. A path the core cannot analyse gets the default element (missing
// strings, false, NaN) rather than an error; only inputs of the wrong kind are raised.
#include "SharedScalar.hpp"
#include "quorin/gateway/Errors.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/PathComponents.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "quorin/io/filesystem/quorin/PathConstituents.hpp"

#include "Hexfarrow/String/String.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "matrix/matrix.hpp"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace quorin::io::filesystem::quorin {
namespace {

namespace core = ::quorin::io::filesystem::core;
namespace gw = ::quorin::gateway;
using core::FileSystemType;
using Hexfarrow::String::TextDispatch;

// Exact and case-sensitive: "Windows" is not "windows" and selects the native convention.
FileSystemType fileSystemType(fl::ustring_view convention) {
    if (convention == u"windows") return FileSystemType::Windows;
    if (convention == u"unix") return FileSystemType::Unix;
    if (convention == u"schema") return FileSystemType::Schema;
    return FileSystemType::Native;
}

PathConstituents analyse(const fl::ustring& path, FileSystemType type) {
    const bool isUrl = foundation::storage::vfs::hasIRIPrefix(path);
    core::PathComponents parts = core::getPathComponents(path, isUrl, type);
    PathConstituents c;
    c.PathType = core::getPathType(path, isUrl, type);
    c.IsAbsolute = core::getIsAbsolute(path, isUrl, type);
    c.Parent = std::move(parts.parent);
    c.Name = std::move(parts.name);
    c.Extension = std::move(parts.extension);
    c.Host = std::move(parts.host);
    c.Port = parts.port;
    c.Query = std::move(parts.query);
    c.Fragment = std::move(parts.fragment);
    return c;
}

// Where the convention of path i comes from: one text for every path, or the element of
// a string or cell array with the same linear index.
class Conventions {
public:
    Conventions(const vqArray* arg, std::size_t pathCount) : arg_(arg) {
        kind_ = gw::classifyText(arg);
        if (kind_ == TextDispatch::Kind::Char) {
            single_ = fileSystemType(fl::ustring_view(vqGetChars(arg), vqGetNumberOfElements(arg)));
            return;
        }
        // Paired element by element, never broadcast: a count that differs would read
        // past one of the two inputs, so it is refused saying both counts.
        const std::size_t count = vqGetNumberOfElements(arg);
        if (count != pathCount) {
            gw::throwError<QUORIN::ConventionCountMismatch>(static_cast<std::int64_t>(count),
                                                            static_cast<std::int64_t>(pathCount));
        }
        if (kind_ == TextDispatch::Kind::String) strings_ = &Hexfarrow::String::getString(arg);
    }

    [[nodiscard]] FileSystemType at(std::size_t i) const {
        switch (kind_) {
            case TextDispatch::Kind::Char:
                return single_;
            case TextDispatch::Kind::String: {
                const auto* rec = strings_->get(i);
                if (rec == nullptr) gw::throwError<QUORIN::string::MissingNotSupported>();
                return fileSystemType(fl::ustring_view(rec->text, rec->length));
            }
            case TextDispatch::Kind::Cell: {
                const vqArray* elem = vqGetCell(arg_, i);
                if (!Hexfarrow::String::isCharRowOrEmpty(elem)) {
                    gw::throwBadCellElement(i, gw::CellErrorArgument::InputName);
                }
                return fileSystemType(
                    fl::ustring_view(vqGetChars(elem), vqGetNumberOfElements(elem)));
            }
        }
        return FileSystemType::Native;
    }

private:
    const vqArray* arg_;
    TextDispatch::Kind kind_{};
    FileSystemType single_ = FileSystemType::Native;
    const Hexfarrow::String::String* strings_ = nullptr;
};

// Field numbers, in the order the struct is created with.
enum Field : int { Parent = 0, Name, Extension, PathType, IsAbsolute, Host, Port, Query, Fragment };

std::vector<std::string> fieldNames() {
    return {"Parent", "Name", "Extension", "PathType", "IsAbsolute",
            "Host",   "Port", "Query",     "Fragment"};
}

// Fills elements of the result; the values that repeat are shared between elements.
class ElementWriter {
public:
    explicit ElementWriter(vqArray* s) : s_(s) {}

    void fill(std::size_t i, const PathConstituents& c) {
        set(i, Parent, text(c.Parent, recurringParent_));
        set(i, Name, text(c.Name));
        set(i, Extension, text(c.Extension, recurringExtension_));
        set(i, PathType, pathType(c.PathType));
        set(i, IsAbsolute, (c.IsAbsolute ? yes_ : no_).reference());
        set(i, Host, text(c.Host, recurringHost_));
        set(i, Port,
            c.Port == PathConstituents::noPort
                ? noPort_.reference()
                : vqCreateDoubleScalar(static_cast<double>(c.Port)).release());
        set(i, Query, text(c.Query, recurringQuery_));
        set(i, Fragment, text(c.Fragment, recurringFragment_));
    }

private:
    void set(std::size_t i, Field f, vqArray* value) const {
        vqSetFieldByNumber(s_, i, f, value);  // the struct owns it even if this throws
    }

    // An empty constituent is a missing string, so that "no extension" differs from "".
    [[nodiscard]] vqArray* text(const fl::ustring& t) const {
        return t.empty() ? missing_.reference() : Hexfarrow::String::createStringArray(t).release();
    }
    [[nodiscard]] vqArray* text(const fl::ustring& t, SharedTexts& recurring) const {
        return t.empty() ? missing_.reference() : recurring.reference(t);
    }

    [[nodiscard]] vqArray* pathType(const fl::ustring& t) const {
        if (t == u"Local") return local_.reference();
        if (t == u"URL") return url_.reference();
        if (t == u"UNC") return unc_.reference();
        return text(t);
    }

    vqArray* s_;
    SharedScalar missing_{Hexfarrow::String::createMissingString()};
    SharedScalar local_{Hexfarrow::String::createStringArray(u"Local")};
    SharedScalar url_{Hexfarrow::String::createStringArray(u"URL")};
    SharedScalar unc_{Hexfarrow::String::createStringArray(u"UNC")};
    SharedScalar yes_{vqCreateLogicalScalar(true)};
    SharedScalar no_{vqCreateLogicalScalar(false)};
    SharedScalar noPort_{vqCreateDoubleScalar(std::numeric_limits<double>::quiet_NaN())};
    SharedTexts recurringParent_, recurringExtension_, recurringHost_, recurringQuery_,
        recurringFragment_;
};

}  // namespace

PathConstituents getPathConstituentsCaller(const fl::ustring& path, const fl::ustring& convention) {
    return analyse(path, fileSystemType(convention));
}

void pathFcn(int outCount, unique_vqarray_ptr* outputs, int argCount, const vqArray* const* args) {
    gw::checkCounts<&pathFcn>(outCount, argCount);
    // The convention is read for every path; without one there is nothing to read.
    if (argCount < 2) matrix::detail::error_minrhs();

    const vqArray* paths = args[0];
    const TextDispatch::Kind pathKind = gw::classifyText(paths);
    const std::size_t pathCount =
        pathKind == TextDispatch::Kind::Char ? 1 : vqGetNumberOfElements(paths);
    const Conventions conventions(args[1], pathCount);

    unique_vqarray_ptr result =
        matrix::detail::do_create_struct(gw::textResultDims(paths), fieldNames());
    ElementWriter writer(result.get());
    const PathConstituents defaults;
    fl::ustring path;
    gw::forEachText(paths, [&](std::size_t i, const std::optional<fl::ustring_view>& text) {
        if (!text) {
            writer.fill(i, defaults);
            return;
        }
        const FileSystemType type = conventions.at(i);
        path.assign(text->begin(), text->end());
        std::optional<PathConstituents> c;
        try {
            c = analyse(path, type);
        } catch (...) {
            // Text the core cannot analyse is answered with the default element.
        }
        writer.fill(i, c ? *c : defaults);
    });
    gw::handOver(outputs, 0, std::move(result));
}

}  // namespace quorin::io::filesystem::quorin
