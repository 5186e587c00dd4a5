// The only translation unit that instantiates Boost.Log sinks: they take a long time and a
// lot of memory to compile, so everything else sees just the logger type.
#include "quorin/io/filesystem/core/Log.hpp"

#include <boost/core/null_deleter.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>

#include <atomic>
#include <iostream>
#include <memory>
#include <mutex>

namespace quorin::io::filesystem::core::log {
namespace {

namespace logging = boost::log;

std::atomic<bool> debugEnabled{false};

// Registered before the first record can be opened: while Boost.Log's core has no sink
// it prints every record to the console, which would make the host chatty by default.
void installSink() {
    using Backend = logging::sinks::text_ostream_backend;
    auto backend = boost::make_shared<Backend>();
    backend->add_stream(boost::shared_ptr<std::ostream>(&std::clog, boost::null_deleter()));
    backend->auto_flush(true);
    auto sink = boost::make_shared<logging::sinks::synchronous_sink<Backend>>(backend);
    sink->set_filter([](const logging::attribute_value_set&) {
        return debugEnabled.load(std::memory_order_relaxed);
    });
    sink->set_formatter(logging::expressions::stream << "[" << logging::trivial::severity << "] "
                                                     << logging::expressions::smessage);
    logging::core::get()->add_sink(sink);
}

}  // namespace

Logger& getLogger() {
    static Logger* const logger = [] {
        installSink();
        // Leaked on purpose: records may be written from static destructors of other
        // libraries after this one's statics are gone.
        auto* l = new Logger();
        l->add_attribute("Channel", logging::attributes::constant<std::string>("quorin.fscore"));
        return l;
    }();
    return *logger;
}

void setDebugLogging(bool enabled) {
    getLogger();
    debugEnabled.store(enabled, std::memory_order_relaxed);
}

bool isDebugLoggingEnabled() noexcept { return debugEnabled.load(std::memory_order_relaxed); }

}  // namespace quorin::io::filesystem::core::log
