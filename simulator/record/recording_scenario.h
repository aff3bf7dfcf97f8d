#pragma once

#include <string>

#include "simulator/record/recording.h"

namespace zulisim {

// Returns a scenario file that makes the software engine do what the recorded device did: the
// clients, their replies, and each failure, short transfer and loss at the number of its operation.
// A program that makes the recorded calls in the recorded order gets the recorded results. The
// function checks this: it makes the calls itself. `name` is the name of the recording in the text.
//
// Throws common::InputError if the recording is redacted or the check finds a difference. Examples
// of differences are an ioctl other than the connect, a reply whose header differs from the
// request's in more than the status, and a reply that moved to another connection because a close
// lost the device.
std::string ScenarioOf(const Recording& recording, const std::string& name);

}  // namespace zulisim
