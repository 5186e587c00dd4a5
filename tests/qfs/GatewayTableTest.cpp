// qfs's gateway table against the library's export map: each mangled symbol must name
// exactly a signature the map exports, so dlsym finds every built-in that exists. The
// count rules are checked against the real library in the end-to-end run.
#include "qfs/Gateways.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cxxabi.h>
#include <fstream>
#include <memory>
#include <set>
#include <string>

namespace {

std::string demangle(const char* symbol) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(symbol, nullptr, nullptr, &status), &std::free);
    return status == 0 ? std::string(text.get()) : std::string();
}

// The quoted C++ signatures of the export map (the language tag aside).
std::set<std::string> exportedSignatures() {
    std::ifstream map(ZKFS_EXPORT_MAP);
    EXPECT_TRUE(map) << ZKFS_EXPORT_MAP;
    std::set<std::string> out;
    std::string line;
    while (std::getline(map, line)) {
        const auto open = line.find('"');
        const auto close = line.rfind('"');
        if (open == std::string::npos || close <= open) continue;
        std::string quoted = line.substr(open + 1, close - open - 1);
        if (quoted.find('(') != std::string::npos) out.insert(std::move(quoted));  // not "C++"
    }
    return out;
}

TEST(QfsGatewayTableTest, EverySymbolIsAnExportedSignatureOfItsName) {
    const auto exported = exportedSignatures();
    ASSERT_EQ(exported.size(), qfs::gateways().size());
    std::set<std::string> seen;
    for (const auto& g : qfs::gateways()) {
        SCOPED_TRACE(g.name);
        const std::string signature = demangle(g.symbol);
        EXPECT_TRUE(exported.count(signature) == 1) << signature;
        // The unqualified name is the last component before the parameter list.
        const std::string head = signature.substr(0, signature.find('('));
        EXPECT_EQ(head.substr(head.rfind(':') == std::string::npos ? 0 : head.rfind(':') + 1),
                  g.name);
        EXPECT_EQ(g.mutableArgsPointer, signature.ends_with("vqArray const**)")) << signature;
        EXPECT_TRUE(seen.insert(g.name).second);
        EXPECT_NE(std::string(g.usage).find(g.name), std::string::npos);
        EXPECT_FALSE(std::string(g.details).empty());
    }
    EXPECT_EQ(qfs::findGateway("pathfcn"), nullptr);                    // names are case-sensitive
    EXPECT_EQ(qfs::findGateway("getPathConstituentsCaller"), nullptr);  // a helper, not a gateway
}

}  // namespace
