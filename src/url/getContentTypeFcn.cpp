// getContentTypeFcn: the media type of one location, as the filesystem core decides it.
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/ContentType.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"

namespace quorin::io::filesystem::quorin {

void getContentTypeFcn(int outCount, unique_vqarray_ptr* outputs, int argCount,
                       const vqArray* const* args) {
    gateway::checkCounts<&getContentTypeFcn>(outCount, argCount);
    const fl::ustring path = gateway::convertScalarText(args[0], true);
    // The core's own errors are already identified: they reach the user unchanged.
    unique_vqarray_ptr result =
        Hexfarrow::String::createStringArray(core::getContentTypeCaller(path));
    // Filled even when no output was asked for: the host keeps it as the implicit answer.
    gateway::handOver(outputs, 0, std::move(result));
}

}  // namespace quorin::io::filesystem::quorin
