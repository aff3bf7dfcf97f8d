#include "tools/call/script_words.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace kaloctl {

namespace {

// The number of characters to insert, delete or replace, letters compared without case.
std::size_t Distance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < left.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < right.size(); ++j) {
      const bool same = std::tolower(static_cast<unsigned char>(left[i])) ==
                        std::tolower(static_cast<unsigned char>(right[j]));
      const std::size_t replaced = diagonal + (same ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

const char* UsageOf(Arguments arguments) {
  switch (arguments) {
    case Arguments::kNone:
      return "";
    case Arguments::kNewHandle:
      return "NAME";
    case Arguments::kHandle:
      return "NAME|null";
    case Arguments::kStateInit:
      return "VERSION OPTION, or null";
    case Arguments::kMessage:
      return "COMMAND LENGTH [reply=N|null] [input=null]";
    case Arguments::kMessagePrivate:
      return "COMMAND LENGTH [reply=N|null] [input=null] [private|IOCTLHND|IOCTLFRE]";
    case Arguments::kHandleMessage:
      return "NAME|null COMMAND LENGTH [reply=N|null] [input=null]";
    case Arguments::kHandleMessagePrivate:
      return "NAME|null COMMAND LENGTH [reply=N|null] [input=null] [private|IOCTLHND|IOCTLFRE]";
  }
  return "";
}

}  // namespace

std::string UsageOf(const CallForm& form) {
  const std::string arguments = UsageOf(form.arguments);
  return form.name + (arguments.empty() ? "" : " " + arguments);
}

const CallForm* FindCall(std::string_view name) {
  for (const CallForm& form : kCallForms) {
    if (form.name == name) return &form;
  }
  return nullptr;
}

const CallForm* NearestCall(std::string_view word) {
  const CallForm* nearest = nullptr;
  std::size_t best = 4;
  if (word.size() > 32) return nullptr;
  for (const CallForm& form : kCallForms) {
    const std::size_t distance = Distance(word, form.name);
    if (distance < best) {
      best = distance;
      nearest = &form;
    }
  }
  return nearest;
}

}  // namespace kaloctl
