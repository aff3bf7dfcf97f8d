#pragma once

#include <string>

namespace zulisim {

// Moves this process and all processes that it starts later into a file tree of their own. The tree
// shows the machine's files with two exceptions: "/dev/zuli" is an empty file to mount on, and
// "/data" and "/etc/vrel_registry.txt" are those below `root`. Other processes do not see the tree.
// It disappears when its last process ends. `work` must be an empty folder. If the process may not
// mount, it also enters a user namespace, with the same user and group. Call this before the first
// thread starts. Throws std::runtime_error.
void EnterPrivateTree(const std::string& work, const std::string& root);

}  // namespace zulisim
