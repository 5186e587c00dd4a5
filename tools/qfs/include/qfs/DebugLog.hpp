#pragma once
// --debug: the filesystem core's debug records go to standard error. Answers false when
// this build has no filesystem core to switch on.
namespace qfs {
bool enableDebugLogging();
}  // namespace qfs
