#pragma once

#include <string>

#include "simulator/scenario/scenario.h"

namespace zulisim {

// The instructions of a command line. Each adds what its text says to the scenario, or throws
// InputError with a message that names the text and what would be right. Numbers are
// decimal, or hexadecimal after "0x"; names count in either case of letters.
//
// TIME is a number with its unit, as in "1.5ms". WHEN picks operations of a kind, counted from 1:
// "3", "3-5", or "3-" for the third and all after; "3@KALO" counts those of a client alone,
// "3@KALO:0x10" and "3@*:0x10" those of a command, "3@#2" those of the second connection.

// NAME:FIELD[,FIELD]... with FIELD one of max=BYTES, version=N
void AddClientOption(const std::string& text, Scenario* scenario);
// CLIENT:COMMAND=FIELD[,FIELD]... with COMMAND a number or "*" for every command, and FIELD one of
// at:WHEN, status:N, body:HEX, private:HEX, unusual, latency:TIME, hold, silent
void AddReplyOption(const std::string& text, Scenario* scenario);
// OPERATION:WHEN=ERRNO
void AddFaultOption(const std::string& text, Scenario* scenario);
// OPERATION:WHEN=BYTES
void AddShortOption(const std::string& text, Scenario* scenario);
// OPERATION:WHEN[,opens=N][,errno=ERRNO][,drop-replies]
void AddLossOption(const std::string& text, Scenario* scenario);
// What follows the place there, on top of `loss`.
DeviceLoss ParseLoss(const std::string& fields, DeviceLoss loss);

}  // namespace zulisim
