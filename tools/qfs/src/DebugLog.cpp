#include "qfs/DebugLog.hpp"

#if defined(QFS_HAVE_FSCORE)
#include "quorin/io/filesystem/core/Log.hpp"
#endif

namespace qfs {

bool enableDebugLogging() {
#if defined(QFS_HAVE_FSCORE)
    quorin::io::filesystem::core::log::setDebugLogging(true);
    return true;
#else
    return false;
#endif
}

}  // namespace qfs
