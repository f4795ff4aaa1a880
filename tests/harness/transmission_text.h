// The lines of a trace for one command sent to the card, and for one question about its reader.
#ifndef ORVANE_TESTS_HARNESS_TRANSMISSION_TEXT_H
#define ORVANE_TESTS_HARNESS_TRANSMISSION_TEXT_H

#include <cstdint>
#include <sstream>
#include <string>

#include "harness/test_values.h"
#include "support/hex_text.h"

namespace orvane::test {

// "SCardTransmit handle=0x2A protocol=2 pci=8 recv=64 FFFF00D5000000". A receive header, which is never wanted, is
// shown at the end.
inline std::string transmissionText(std::uint64_t cardHandle, std::uint32_t protocol, std::uint32_t headerLength,
                                    bool hasReceiveHeader, std::uint32_t receiveLength, const Bytes& command) {
  std::ostringstream text;
  text << "SCardTransmit handle=0x" << std::hex << std::uppercase << cardHandle << std::dec << " protocol=" << protocol
       << " pci=" << headerLength << " recv=" << receiveLength << " "
       << hexText<std::string>(command.data(), command.size());
  if (hasReceiveHeader) text << " with receive header";
  return text.str();
}

// "SCardStatusA handle=0x2A name=512 atr=36 zeroed": the lengths that came in, and whether both buffers were.
inline std::string statusQuestionText(std::uint64_t cardHandle, std::uint32_t nameLength, std::uint32_t atrLength,
                                      bool isZeroed) {
  std::ostringstream text;
  text << "SCardStatusA handle=0x" << std::hex << std::uppercase << cardHandle << std::dec << " name=" << nameLength
       << " atr=" << atrLength << (isZeroed ? " zeroed" : "");
  return text.str();
}

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_TRANSMISSION_TEXT_H
