#include "qfs/Gateways.hpp"

#include <array>

namespace qfs {
namespace {

// Mangled once from the declarations in quorin/io/filesystem/quorin/Builtins.hpp; a test
// demangles each and compares it with the library's export map.
constexpr std::array<GatewayInfo, 15> kGateways{{
    {"createFileURL",
     "_ZN6quorin2io10filesystem6quorin13createFileURLEiPSt10unique_ptrI7vqArray17vqDestroy_"
     "deleterEiPKPKS4_",
     false, 1, 1, -1, "url = createFileURL(paths)",
     "paths: char row, string array or cell array of char rows (further arguments are ignored)\n"
     "url: string array shaped like paths, each a \"file\" URL of the path made absolute\n"
     "a missing string or a path that gives no URL is an error"},
    {"createURLFromPartsFcn",
     "_Z21createURLFromPartsFcniPSt10unique_ptrI7vqArray17vqDestroy_deleterEiPKPKS0_", false, 1, 2,
     2, "url = createURLFromPartsFcn(base, relative)",
     "base: absolute URL (string scalar or char row); relative: reference resolved against it\n"
     "url: 1x1 string, the joined URL\n"
     "never raises for bad text: the result is then left as created"},
    {"getContentTypeFcn",
     "_ZN6quorin2io10filesystem6quorin17getContentTypeFcnEiPSt10unique_ptrI7vqArray17vqDestroy_"
     "deleterEiPKPKS4_",
     false, 1, 1, 1, "type = getContentTypeFcn(path)",
     "path: one path (string scalar or char row)\n"
     "type: 1x1 string, the media type by extension, else by content (\"inode/directory\" for "
     "folders)"},
    {"isAbsolutePathNoIOFcn",
     "_Z21isAbsolutePathNoIOFcniPSt10unique_ptrI7vqArray17vqDestroy_deleterEiPKPKS0_", false, 1, 1,
     1, "tf = isAbsolutePathNoIOFcn(paths)",
     "paths: char row, string array or cell array of char rows; the file system is not touched\n"
     "tf: logical array shaped like paths (false for a missing string)"},
    {"getPerms_impl", "_Z13getPerms_impliPSt10unique_ptrI7vqArray17vqDestroy_deleterEiPKPKS0_",
     false, 1, 2, 3, "perms = getPerms_impl(location, type[, names])",
     "type: \"File\", \"Folder\" or another word (a link: its own mode)\n"
     "names: permission names to report, default all nine: Readable Writable UserExecute\n"
     "  GroupRead GroupWrite GroupExecute OtherRead OtherWrite OtherExecute\n"
     "perms: 1x1 struct of logicals (a cloud location: Readable and Writable only)"},
    {"modifyPerms_impl",
     "_Z16modifyPerms_impliPSt10unique_ptrI7vqArray17vqDestroy_deleterEiPKPKS0_", false, 1, 3, 5,
     "failures = modifyPerms_impl(location, type, request[, unused, scope])",
     "request: scalar struct, permission name -> true (grant) or false (revoke)\n"
     "scope: link \"symboliclinks\" or \"target\"; folder \"\" (itself), \"files\", \"folders\" or "
     "\"all\";\n"
     "  file \"all\"\n"
     "failures: Nx1 struct array with fields Name and Cause; with no output the first\n"
     "  failure is raised"},
    {"mkFileFcn", "_Z9mkFileFcniPSt10unique_ptrI7vqArray17vqDestroy_deleterEiPKPKS0_", false, 3, 1,
     3, "[ok, message, identifier] = mkFileFcn(path[, 'ReplacementRule', rule])",
     "path: local path or URL; missing parent folders are created\n"
     "rule: \"overwrite\" replaces an existing file, \"preserve\" (default) keeps it and fails\n"
     "ok: logical; message, identifier: strings (\"\" on success); with no output failures raise"},
    {"mkSymlinkFcn", "_Z12mkSymlinkFcniPSt10unique_ptrI7vqArray17vqDestroy_deleterEiPKPKS0_", false,
     0, 2, 4, "mkSymlinkFcn(link, target[, 'ReplacementRule', rule])",
     "target: must exist; stored exactly as typed (a relative target stays relative)\n"
     "rule: \"overwrite\" replaces an existing link, \"preserve\" (default) fails on it\n"
     "no outputs; missing parent folders of the link are created"},
    {"createWindowsShortcutFcn",
     "_Z24createWindowsShortcutFcniPSt10unique_ptrI7vqArray17vqDestroy_deleterEiPKPKS0_", false, -1,
     -1, -1, "createWindowsShortcutFcn(...)", "always refused on this platform"},
    {"isSymlinkFcn", "_Z12isSymlinkFcniPSt10unique_ptrI7vqArray17vqDestroy_deleterEiPKPKS0_", false,
     2, 1, 1, "[tf, targets] = isSymlinkFcn(paths)",
     "paths: char row, string array or cell array of char rows\n"
     "tf: logical array shaped like paths; missing or unreadable paths answer false\n"
     "targets: string array, for each link the \"file\" URL of its target"},
    {"resolvePathFcn",
     "_ZN6quorin2io10filesystem6quorin14resolvePathFcnEiPSt10unique_ptrI7vqArray17vqDestroy_"
     "deleterEiPKPKS4_",
     false, 1, 1, -1, "info = resolvePathFcn(paths[, name, value, ...])",
     "options (logical scalars, as pairs or one struct): ResolveSymbolicLinks,\n"
     "  LocalPathFromFileScheme, CaseCorrectAndResolveOnWindows\n"
     "info: struct array shaped like paths: ResolvedPath, Type (\"File\", \"Folder\",\n"
     "  \"SymbolicLink\" or \"None\")"},
    {"resolvePathFcnWithAttributes",
     "_ZN6quorin2io10filesystem6quorin28resolvePathFcnWithAttributesEiPSt10unique_"
     "ptrI7vqArray17vqDestroy_deleterEiPKPKS4_",
     false, 1, 1, -1, "info = resolvePathFcnWithAttributes(paths[, name, value, ...])",
     "options as for resolvePathFcn\n"
     "info: struct array: ResolvedPath, Type, Readable, Writable, LastModified (milliseconds\n"
     "  since 1970, NaN when unknown), Size (bytes, 0 for folders)"},
    {"pathFcn",
     "_ZN6quorin2io10filesystem6quorin7pathFcnEiPSt10unique_ptrI7vqArray17vqDestroy_"
     "deleterEiPKPKS4_",
     false, 1, 1, 3, "parts = pathFcn(paths, convention)",
     "convention: \"unix\", \"windows\", \"schema\" (URL) or anything else (this platform's);\n"
     "  a string or cell array gives one convention per path\n"
     "parts: struct array: Parent, Name, Extension, PathType, IsAbsolute, Host, Port, Query,\n"
     "  Fragment (missing strings and NaN where a part is absent)"},
    {"relativepath", "_Z12relativepathiPSt10unique_ptrI7vqArray17vqDestroy_deleterEiPPKS0_", true,
     1, 2, 2, "rel = relativepath(source, destinations)",
     "source: one absolute path or URL, taken as a folder\n"
     "destinations: char row, string array or cell array of char rows\n"
     "rel: string array shaped like destinations (a destination with no common root is kept)"},
    {"pathNameLengthValidation",
     "_Z24pathNameLengthValidationiPSt10unique_ptrI7vqArray17vqDestroy_deleterEiPKPKS0_", false, 1,
     1, 1, "tf = pathNameLengthValidation(paths)",
     "paths: char row, string array or cell array of char rows\n"
     "tf: Nx1 logical, true when a path has at most 4352 UTF-16 code units (missing: true)"},
}};

}  // namespace

std::span<const GatewayInfo> gateways() { return kGateways; }

const GatewayInfo* findGateway(std::string_view name) {
    for (const auto& g : kGateways) {
        if (name == g.name) return &g;
    }
    return nullptr;
}

std::string gatewayNames() {
    std::string out;
    for (const auto& g : kGateways) {
        if (!out.empty()) out += ", ";
        out += g.name;
    }
    return out;
}

}  // namespace qfs
