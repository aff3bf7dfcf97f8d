#pragma once

#include <string_view>

namespace kaloctl {

// The functions that the library's log lines begin with. A line may follow another without a line
// end, so these names are what tells where it begins.
constexpr std::string_view kLogFunctions[] = {
    "KaloStateInit",   "KaloInit3",    "StartIoEx3",   "StartIo3",      "KaloCleanup3",
    "SessionCleanup",  "KaloInit",     "StartIoEx",    "KaloCleanup",   "FenuInit3",
    "FenuInit",        "FenuCleanup3", "FenuCleanup",  "CpDremSession", "~CpDremSession",
    "Connect",         "Disconnect",   "ReadFromZuli", "WriteToZuli",   "IoMessage",
    "SendIoctlToZuli",
};

}  // namespace kaloctl
