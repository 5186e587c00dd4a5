// The load and unload hooks. The library has no state of its own; what must exist before
// the first call is the error facility's process-wide statics, which the includes below
// set up when the library is loaded.
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include <boost/exception_ptr.hpp>
#include <boost/system/error_category.hpp>
#include <boost/system/generic_category.hpp>
#include <boost/system/system_category.hpp>

namespace {

// Touch the error categories once at load time so their one-time initialisation never
// runs in the middle of an error path.
[[maybe_unused]] const bool kCategoriesReady = [] {
    (void)boost::system::generic_category();
    (void)boost::system::system_category();
    return true;
}();

}  // namespace

extern "C" {
void QNInitialize_libzkfilesystemquorin() {}
void QNTerminate_libzkfilesystemquorin() {}
}
