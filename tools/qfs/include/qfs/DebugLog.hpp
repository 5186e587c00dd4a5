#pragma once
// --debug: the filesystem core's debug records go to standard error.
namespace qfs {
void enableDebugLogging();
}  // namespace qfs
