#include "pins/memory_scan.h"

#include <algorithm>
#include <sstream>

namespace orvane::test {
namespace {

constexpr std::size_t kPiece = 12;
constexpr std::size_t kWindow = 1 << 20;
constexpr std::size_t kPage = 1 << 12;
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
  std::size_t pin = 0;    // which one it is of
  std::size_t first = 0;  // of the PIN's bytes
  const char* form = nullptr;
};

// Finds all pieces of some PINs in one pass (the method of Wu and Manber). Two neighbouring bytes tell how far away the
// next piece is at least, since all are 12 bytes long or longer: most often 11 bytes, so that one place in 11 is looked
// at.
class Search {
 public:
  explicit Search(const std::vector<const MaskedPin*>& pins) {
    distances.fill(kFarthest);
    for (std::size_t pin = 0; pin < pins.size(); ++pin) add(pin, *pins[pin]);
  }

  // Finds that begin in the first `starts` bytes, for each PIN.
  void find(const std::uint8_t* bytes, std::size_t size, std::size_t starts, std::uint64_t address,
            std::vector<Finds>& finds) const {
    for (std::size_t at = 0; at < starts && size - at >= kPiece;) {
      const std::size_t distance = distances[pairOf(bytes[at + kFarthest - 1], bytes[at + kFarthest])];
      if (distance != 0) {
        at += distance;
        continue;
      }
      for (const Pattern& pattern : patterns_) compare(pattern, bytes + at, size - at, address + at, finds);
      ++at;
    }
  }

 private:
  static constexpr std::size_t kFarthest = kPiece - 1;

  static constexpr std::size_t pairOf(std::uint8_t first, std::uint8_t second) {
    return std::size_t{first} << 8U | second;
  }

  void add(std::size_t number, const MaskedPin& pin) {
    for (const NamedForm& form : kForms) {
      for (std::size_t first = 0; first + kPiece <= pin.size(); first += kPiece) {
        Pattern pattern;
        pattern.size = kPiece * form.unitsPerByte;
        pattern.pin = number;
        pattern.first = first;
        pattern.form = form.name;
        for (std::size_t i = 0; i < pattern.size; ++i) {
          pattern.masked[i] = maskedUnit(pin, form.form, first * form.unitsPerByte + i);
        }
        for (std::size_t i = 0; i < kFarthest; ++i) {
          std::uint8_t& distance =
              distances[pairOf(MaskedPin::mask(pattern.masked[i]), MaskedPin::mask(pattern.masked[i + 1]))];
          distance = static_cast<std::uint8_t>(std::min<std::size_t>(distance, kFarthest - 1 - i));
        }
        patterns_.push_back(pattern);
      }
    }
  }

  static void compare(const Pattern& pattern, const std::uint8_t* bytes, std::size_t size, std::uint64_t address,
                      std::vector<Finds>& finds) {
    if (size < pattern.size) return;
    std::size_t same = 0;
    while (same < pattern.size && MaskedPin::mask(bytes[same]) == pattern.masked[same]) ++same;
    if (same < pattern.size) return;
    std::ostringstream text;
    text << "bytes " << pattern.first << " to " << pattern.first + kPiece - 1 << " " << pattern.form << " at 0x"
         << std::hex << address;
    finds[pattern.pin].push_back(text.str());
  }

  // By the two bytes at the end of the 12 that are looked at; not part of the object, which may lie on the stack. There
  // is one search at a time.
  static std::array<std::uint8_t, 1 << 16> distances;
  std::vector<Pattern> patterns_;
};
std::array<std::uint8_t, 1 << 16> Search::distances;

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
  std::vector<Finds> found(1);
  Search({&pin}).find(bytes, size, size, address, found);
  finds.insert(finds.end(), found[0].begin(), found[0].end());
}

std::vector<Finds> findPinsInMemory(const std::vector<const MaskedPin*>& pins) {
  const Search search(pins);
  std::vector<Finds> finds(pins.size());
  const auto look = [&](std::uint64_t begin, std::uint64_t end) {
    for (std::uint64_t at = begin; at < end;) {
      std::size_t size = 0;
      bool isRead = false;
      // When a part of it is gone by now, the rest is read in small pieces.
      for (const std::size_t most : {kWindow, kPage + kOverlap}) {
        if (isRead) break;
        size = static_cast<std::size_t>(std::min<std::uint64_t>(most, end - at));
        isRead = readMemory(at, window, size);
      }
      const std::size_t starts = size == end - at ? size : size - kOverlap;
      if (isRead) search.find(window, size, starts, at, finds);
      at += starts;
    }
  };
  const auto ownBegin = reinterpret_cast<std::uintptr_t>(window);
  const std::uint64_t ownEnd = ownBegin + kWindow;
  for (const MemoryBlock& block : writableMemory()) {
    const std::uint64_t end = block.address + block.size;
    look(block.address, std::clamp<std::uint64_t>(ownBegin, block.address, end));
    look(std::clamp<std::uint64_t>(ownEnd, block.address, end), end);
  }
  overwrite(window, sizeof(window));
  return finds;
}

}  // namespace orvane::test
