// What is fuzzed. Each target takes any bytes, drives the minidriver or the tool's readers with them, and ends the
// process with a message when something is wrong that the sanitizers cannot see.
#ifndef ORVANE_FUZZ_TARGETS_H
#define ORVANE_FUZZ_TARGETS_H

#include <cstdint>
#include <span>

namespace orvane::fuzz {

using Input = std::span<const std::uint8_t>;

// A reader name up to the first line feed, and what the card answers to the serial command behind it: the pure
// functions, and a whole acquisition.
void fuzzReaderNames(Input input);

// A directory up to the first line feed, and a file name behind it: the pure functions, reading, listing, describing.
void fuzzFileNames(Input input);

// A property's name up to the first line feed, two bytes for size and flags, and data behind them: all entry points
// that take a property.
void fuzzProperties(Input input);

// A sequence of calls in the little language of calls.cpp: contexts, tokens, faults, all entry points.
void fuzzCalls(Input input);

// A program file: its processor and its imports.
void fuzzProgramFiles(Input input);

// A byte that says in what pieces the log behind it is read: lines, calls, explanations and what is shown of them.
void fuzzLogTexts(Input input);

// Data of a card, of any kind: all decoders of the tool, and the comparison of a registry entry with the card.
void fuzzCardData(Input input);

// A target with the name that scripts/fuzz knows it by.
struct Target {
  const char* name;
  void (*run)(Input);
};

// All of them; the folders in fuzz/corpus/ have the same names.
inline constexpr Target kTargets[] = {{"reader-names", fuzzReaderNames},   {"file-names", fuzzFileNames},
                                      {"properties", fuzzProperties},      {"calls", fuzzCalls},
                                      {"program-files", fuzzProgramFiles}, {"log-texts", fuzzLogTexts},
                                      {"card-data", fuzzCardData}};

}  // namespace orvane::fuzz

#endif  // ORVANE_FUZZ_TARGETS_H
