#pragma once

#include <string>

#include "tools/call/script.h"

namespace kaloctl {

// What stands behind a call's name.
enum class Arguments {
  kNone,
  kNewHandle,
  kHandle,
  kStateInit,
  kMessage,
  kMessagePrivate,
  kHandleMessage,
  kHandleMessagePrivate,
};

struct CallForm {
  const char* name;
  Call call;
  Arguments arguments;
};

// All calls; parser, help and suggestions come from it.
constexpr CallForm kCallForms[] = {
    {"KaloStateInit", Call::kKaloStateInit, Arguments::kStateInit},
    {"KaloInit3", Call::kKaloInit3, Arguments::kNewHandle},
    {"StartIoEx3", Call::kStartIoEx3, Arguments::kHandleMessagePrivate},
    {"StartIo3", Call::kStartIo3, Arguments::kHandleMessage},
    {"KaloCleanup3", Call::kKaloCleanup3, Arguments::kHandle},
    {"FenuInit3", Call::kFenuInit3, Arguments::kNewHandle},
    {"FenuCleanup3", Call::kFenuCleanup3, Arguments::kHandle},
    {"KaloInit", Call::kKaloInit, Arguments::kNone},
    {"StartIoEx", Call::kStartIoEx, Arguments::kMessagePrivate},
    {"StartIo", Call::kStartIo, Arguments::kMessage},
    {"KaloCleanup", Call::kKaloCleanup, Arguments::kNone},
    {"FenuInit", Call::kFenuInit, Arguments::kNone},
    {"FenuCleanup", Call::kFenuCleanup, Arguments::kNone},
    {"ProvisioningStartIo", Call::kProvisioningStartIo, Arguments::kMessage},
};

// How a call is written.
std::string UsageOf(const CallForm& form);

// The call of that name, or null.
const CallForm* FindCall(std::string_view name);

// The call whose name is most like a wrong word, or null when none is near.
const CallForm* NearestCall(std::string_view word);

}  // namespace kaloctl
