#pragma once

#include <string>

namespace zulisim {

// Moves this process, and all that it starts, into a file tree that is its own: the machine's, but
// for an empty file "/dev/zuli" to mount on, and "/data" and "/etc/vrel_registry.txt", which are
// those below `root`. Nobody else sees any of it, and it ends with its last process. `work` is an
// empty folder. Without the privilege to do so the process enters a user namespace as well, under
// the same user and group. Throws std::runtime_error. Before the first thread.
void EnterPrivateTree(const std::string& work, const std::string& root);

}  // namespace zulisim
