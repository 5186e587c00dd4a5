#include "qfs/DebugLog.hpp"

#include "quorin/io/filesystem/core/Log.hpp"

namespace qfs {

void enableDebugLogging() { quorin::io::filesystem::core::log::setDebugLogging(true); }

}  // namespace qfs
