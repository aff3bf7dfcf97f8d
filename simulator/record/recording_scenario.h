#pragma once

#include <string>

#include "simulator/record/recording.h"

namespace zulisim {

// Returns a scenario file with which the software engine does what the recorded device did: the
// clients, their replies, and what failed, fell short or was lost, by the numbers of the
// operations. A program that makes the recorded calls in the recorded order gets the recorded
// results; this is checked before the function returns. `name` stands for the recording in the
// text.
//
// Throws common::InputError when a scenario cannot express the recording: a redacted one, an ioctl
// other than the connect, or a reply whose header differs from the request's in more than the
// status.
std::string ScenarioOf(const Recording& recording, const std::string& name);

}  // namespace zulisim
