// Names, meanings, exit codes and advice for the status codes that the smart-card service and a minidriver answer.
#ifndef ORVANE_TOOL_CARD_STATUS_NAMES_H
#define ORVANE_TOOL_CARD_STATUS_NAMES_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tool_error.h"

namespace orvane::tool {

struct StatusText {
  std::uint32_t code;
  ExitCode exitCode;  // of the program, when a call answered this
  std::string_view name;
  std::string_view meaning;  // one plain sentence without a full stop
};

// statusTexts lists every code the tool knows, smart-card codes first.
std::span<const StatusText> statusTexts();

// statusName gives the published name, or an empty text for a code that is not in the table.
std::string_view statusName(std::uint32_t status);

// statusMeaning gives the sentence of the table, or an empty text.
std::string_view statusMeaning(std::uint32_t status);

// meaningOf says what `status` means as the answer of `call`, an entry point or smart-card service call: more than its
// sentence of the table where the call makes that possible.
std::string_view meaningOf(std::string_view call, std::uint32_t status);

// statusLabel gives name and number, "SCARD_W_WRONG_CHV (0x8010006B)" or "ERROR_INVALID_PARAMETER (87)": smart-card
// codes are written in hexadecimal, Win32 codes in decimal, as their documentation does. An unknown code is its number
// alone.
std::string statusLabel(std::uint32_t status);

// exitCodeOf gives the exit code for a failed call of the minidriver or of the smart-card service.
ExitCode exitCodeOf(std::uint32_t status);

// adviceFor says in one or two sentences what a person can do after `call` (an entry point or smart-card service call)
// answered `status`; empty when there is nothing better to say than the meaning.
std::string_view adviceFor(std::string_view call, std::uint32_t status);

}  // namespace orvane::tool

#endif
