// The steps of an acquisition that tie a context to one token.
#ifndef ORVANE_MINIDRIVER_FRAME_DEVICE_BINDING_H
#define ORVANE_MINIDRIVER_FRAME_DEVICE_BINDING_H

#include <cstdint>
#include <string>
#include <vector>

#include "cache/process_state.h"
#include "minidriver/frame/provider_context.h"
#include "platform/windows_api.h"

namespace orvane {

// What the resource manager says about the reader of a card handle.
struct ReaderIdentity {
  std::string name;        // empty when it could not be asked
  std::int32_t index = 0;  // the number at the end of the name, else 0
};

// identifyReader asks for the reader name of `cardHandle`, which is not 0, and takes the index from it. A failing call
// is logged and gives an empty name. Throws std::out_of_range when the index exceeds 32 signed bits.
ReaderIdentity identifyReader(SCARDHANDLE cardHandle);

// resolveSerial returns the serial of the token behind the reader: from the reader name, by a serial command sent to
// the card, or by the reader's position among `connectedDevices`, which is not empty. The caller holds the library
// lock.
std::string resolveSerial(SCARDHANDLE cardHandle, const ReaderIdentity& reader,
                          const std::vector<std::string>& connectedDevices)
    ORVANE_REQUIRES(processState().libraryMutex);

// openDevice attaches a context to the token's record, initialises the device unless that was done, and returns its key
// list. Failures are logged and leave an empty list. The caller holds the library lock.
std::vector<OrvaneKeyPair> openDevice(const std::string& serial) ORVANE_REQUIRES(processState().libraryMutex);

// updateKeyCount notes how many keys the token has now; another number than before bumps its container and file
// freshness. The library lock is not held.
void updateKeyCount(const std::string& serial, std::size_t keyCount) ORVANE_EXCLUDES(processState().libraryMutex);

// buildContainers makes the context's container list from the key pairs, in their order, and shares it with the
// whole process.
void buildContainers(ProviderContext& context, const std::vector<OrvaneKeyPair>& keyPairs);

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_FRAME_DEVICE_BINDING_H
