#pragma once

#include <string>

namespace zulisim {

// Moves this process and all processes that it starts later into a file tree of their own. It shows
// the machine's tree, except for an empty file "/dev/zuli" to mount on, and for "/data" and
// "/etc/vrel_registry.txt", which are those below `root`. Other processes do not see it, and it
// vanishes with its last process. `work` is an empty folder. A process that may not mount also
// enters a user namespace, with the same user and group. Call it before the first thread starts.
// Throws std::runtime_error.
void EnterPrivateTree(const std::string& work, const std::string& root);

}  // namespace zulisim
