// The key containers of the card, each with its certificate.
#ifndef ORVANE_TOOL_CARD_CONTAINERS_H
#define ORVANE_TOOL_CARD_CONTAINERS_H

#include <optional>
#include <string>
#include <vector>

#include "card/card_files.h"
#include "card/card_session.h"
#include "card/key_list.h"

namespace orvane::tool {

// Container is one record of "cmapfile" with the certificate that belongs to it.
struct Container {
  ContainerRecord record;
  Bytes certificate;                         // DER; empty when there is none
  std::string whyNone;                       // why there is none
  std::optional<std::uint32_t> status = {};  // the status of the failed call, when that is why
};

// readContainers reads "cmapfile" and the certificates of all valid containers.
std::vector<Container> readContainers(CardSession& card);

// listedKeys reads the certificates for people; one that cannot be read is a problem of its key alone.
std::vector<ListedKey> listedKeys(const std::vector<Container>& containers);

// chooseContainer gives the container of the key with that number (counted from 1), or without one the default
// container if `fits` accepts it, else the first one that `fits` accepts. Throws ToolError (ExitCode::kNotFound). There
// is at least one container.
const Container& chooseContainer(const std::vector<Container>& containers, std::optional<int> key,
                                 bool (*fits)(const ContainerRecord&), const char* purpose);

}  // namespace orvane::tool

#endif
