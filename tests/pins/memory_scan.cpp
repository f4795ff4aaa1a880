#include "pins/memory_scan.h"

#include <algorithm>
#include <sstream>

namespace orvane::test {
namespace {

constexpr std::size_t kPiece = 12;
constexpr std::size_t kWindow = 1 << 16;
// The longest form of a piece is shorter.
constexpr std::size_t kOverlap = 64;

// What is read from elsewhere; not looked at itself.
std::uint8_t window[kWindow];

enum class Form { kPlain, kUtf16, kUpperHex, kLowerHex };
struct NamedForm {
  Form form;
  const char* name;
  std::size_t unitsPerByte;
};
constexpr NamedForm kForms[] = {{Form::kPlain, "in plain", 1},
                                {Form::kUtf16, "as UTF-16", 2},
                                {Form::kUpperHex, "in hexadecimal", 2},
                                {Form::kLowerHex, "in lower-case hexadecimal", 2}};

std::uint8_t digit(unsigned value, bool isUpper) {
  return static_cast<std::uint8_t>(value < 10 ? '0' + value : (isUpper ? 'A' : 'a') + value - 10);
}

// One byte of the form, masked: what is compared is the memory's byte with its bits changed.
std::uint8_t maskedUnit(const MaskedPin& pin, Form form, std::size_t unit) {
  if (form == Form::kPlain) return pin.maskedByte(unit);
  if (form == Form::kUtf16) return unit % 2 == 0 ? pin.maskedByte(unit / 2) : MaskedPin::mask(0);
  const std::uint8_t byte = MaskedPin::mask(pin.maskedByte(unit / 2));
  return MaskedPin::mask(digit(unit % 2 == 0 ? byte >> 4 : byte & 0xF, form == Form::kUpperHex));
}

struct Pattern {
  std::array<std::uint8_t, 2 * kPiece> masked{};
  std::size_t size = 0;
  std::size_t first = 0;  // of the PIN's bytes
  const char* form = nullptr;
};

std::vector<Pattern> patternsOf(const MaskedPin& pin) {
  std::vector<Pattern> patterns;
  for (const NamedForm& form : kForms) {
    for (std::size_t first = 0; first + kPiece <= pin.size(); first += kPiece) {
      Pattern pattern;
      pattern.size = kPiece * form.unitsPerByte;
      pattern.first = first;
      pattern.form = form.name;
      for (std::size_t i = 0; i < pattern.size; ++i) {
        pattern.masked[i] = maskedUnit(pin, form.form, first * form.unitsPerByte + i);
      }
      patterns.push_back(pattern);
    }
  }
  return patterns;
}

// Finds that begin in the first `starts` bytes.
void find(const std::vector<Pattern>& patterns, const std::uint8_t* bytes, std::size_t size, std::size_t starts,
          std::uint64_t address, Finds& finds) {
  std::array<bool, 256> begins{};
  for (const Pattern& pattern : patterns) begins[MaskedPin::mask(pattern.masked[0])] = true;
  for (std::size_t at = 0; at < starts; ++at) {
    if (!begins[bytes[at]]) continue;
    for (const Pattern& pattern : patterns) {
      if (size - at < pattern.size) continue;
      std::size_t same = 0;
      while (same < pattern.size && MaskedPin::mask(bytes[at + same]) == pattern.masked[same]) ++same;
      if (same < pattern.size) continue;
      std::ostringstream text;
      text << "bytes " << pattern.first << " to " << pattern.first + kPiece - 1 << " " << pattern.form << " at 0x"
           << std::hex << address + at;
      finds.push_back(text.str());
    }
  }
}

void overwrite(volatile std::uint8_t* bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) bytes[i] = 0;
}

}  // namespace

PlainPin::PlainPin(const MaskedPin& pin) : size_(static_cast<std::uint32_t>(pin.size())) {
  // Byte by byte, so that no part of it stays in a register.
  volatile std::uint8_t* const bytes = bytes_;
  for (std::size_t i = 0; i < size_; ++i) bytes[i] = MaskedPin::mask(pin.maskedByte(i));
}

PlainPin::~PlainPin() { overwrite(bytes_, sizeof(bytes_)); }

void findPin(const MaskedPin& pin, const std::uint8_t* bytes, std::size_t size, std::uint64_t address, Finds& finds) {
  find(patternsOf(pin), bytes, size, size, address, finds);
}

Finds findPinInMemory(const MaskedPin& pin) {
  const std::vector<Pattern> patterns = patternsOf(pin);
  const auto ownBegin = reinterpret_cast<std::uintptr_t>(window);
  Finds finds;
  for (const MemoryBlock& block : writableMemory()) {
    for (std::uint64_t at = block.address; at < block.address + block.size; at += kWindow - kOverlap) {
      const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(kWindow, block.address + block.size - at));
      if (!readMemory(at, window, size)) continue;
      Finds here;
      find(patterns, window, size, std::min(size, kWindow - kOverlap), at, here);
      if (here.empty()) continue;
      // The window may show itself, as it was while it was filled.
      if (at + size > ownBegin && at < ownBegin + kWindow) continue;
      finds.insert(finds.end(), here.begin(), here.end());
    }
  }
  overwrite(window, sizeof(window));
  return finds;
}

}  // namespace orvane::test
