#include "FuzzTarget.hpp"

namespace zkfs::fuzz {

std::span<const Target> targets() {
    static const std::vector<Target> all = [] {
        const auto gateways = gatewayTargets();
        std::vector<Target> out(gateways.begin(), gateways.end());
        out.push_back(qfsParserTarget());
        out.push_back(iriTarget());
        return out;
    }();
    return all;
}

const Target* findTarget(std::string_view name) {
    for (const auto& t : targets()) {
        if (t.name == name) return &t;
    }
    return nullptr;
}

}  // namespace zkfs::fuzz
