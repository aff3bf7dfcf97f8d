#pragma once

#include <string>

#include "simulator/record/recording.h"

namespace zulisim {

// Returns a scenario file that makes the software engine do what the recorded device did: the
// clients, their replies, and each failure, short transfer and loss at the number of its operation.
// A program that makes the recorded calls in the recorded order gets the recorded results. The
// function checks this by making the calls. `name` names the recording in the text.
//
// Throws common::InputError when the recording is redacted, and when the check finds a difference:
// for example an ioctl other than the connect, a reply whose header differs from the request's in
// more than the status, or a reply that moved to another connection because a close lost the
// device.
std::string ScenarioOf(const Recording& recording, const std::string& name);

}  // namespace zulisim
