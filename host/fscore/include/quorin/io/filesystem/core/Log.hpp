#pragma once
// The filesystem core's logger, shared by the host libraries and the built-ins.
//
// A Boost.Log severity logger (thread-safe). Records reach standard error only while the
// front end has enabled debug logging (qfs --debug); otherwise they are dropped before
// they are formatted, so a debug record costs one filter test. Records carry the
// attribute "Channel" = "quorin.fscore". The sink lives inside this library; callers only
// open records:
//   BOOST_LOG_SEV(log::getLogger(), boost::log::trivial::debug) << "text";
#include <boost/log/sources/severity_logger.hpp>
#include <boost/log/trivial.hpp>

namespace quorin::io::filesystem::core::log {

using Severity = boost::log::trivial::severity_level;
using Logger = boost::log::sources::severity_logger_mt<Severity>;

// The process-wide logger; created on first use.
Logger& getLogger();

// Switches records of every severity (debug and above) to standard error, or off again.
void setDebugLogging(bool enabled);
[[nodiscard]] bool isDebugLoggingEnabled() noexcept;

}  // namespace quorin::io::filesystem::core::log
