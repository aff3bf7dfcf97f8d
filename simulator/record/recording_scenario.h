#pragma once

#include <string>

#include "simulator/record/recording.h"

namespace zulisim {

// A scenario file with which the software engine does to a program what was done in the recording:
// the clients, what each command was answered with, and what failed, fell short or was lost, by the
// numbers of the operations. A scenario cannot hold what a client put into the other words of a
// reply's header, nor any times. `name` stands for the recording in it.
std::string ScenarioOf(const Recording& recording, const std::string& name);

}  // namespace zulisim
