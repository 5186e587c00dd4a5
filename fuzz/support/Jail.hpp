#pragma once
// A confinement for fuzzing built-ins that touch files.
//
// Fuzz input names arbitrary paths, and CI fuzzes as root, so the process first moves
// into its own mount namespace (a user namespace too when it is not root) where every
// mount is read-only except:
//   - /mnt, a small private tmpfs holding the sandbox tree the built-ins play on, and
//   - the folders the fuzzer itself writes (corpus, artifacts), given by the caller.
// The tree (cwd = /mnt):
//   d/ (755)  d/f (640, "x")  d/s/ (755)  d/s/g (600)  d/l -> f  d/dangling -> none
//   loop -> loop  noperm/ (000) with noperm/h  a.txt  b.html  a non-UTF-8 name (0xff)
// Nothing leaves the namespace: it ends with the process.
#include <string>
#include <vector>

namespace zkfs::fuzz {

// False with a reason when no namespace could be made (no privileges, no user
// namespaces); the caller must then not run built-ins that write.
bool enterJail(const std::vector<std::string>& writable, std::string& reason);

// Puts the sandbox tree back as described (removing whatever else is in /mnt).
void resetSandbox();

}  // namespace zkfs::fuzz
