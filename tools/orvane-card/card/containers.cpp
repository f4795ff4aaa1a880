#include "card/containers.h"

#include "tool_error.h"

namespace orvane::tool {

std::vector<Container> readContainers(CardSession& card) {
  const CardSession::Transaction transaction(card);
  std::vector<Container> containers;
  for (ContainerRecord& record : decodeContainerMap(card.readFile({"mscp", "cmapfile"}))) {
    Container container{std::move(record), {}, {}, {}};
    if (container.record.valid()) {
      try {
        container.certificate = card.readFile(certificateFile(container.record.index, container.record.signatureBits));
      } catch (const ToolError& error) {
        container.whyNone = error.what();
        container.status = error.status();
      }
    } else {
      container.whyNone = "the container is not in use";
    }
    containers.push_back(std::move(container));
  }
  return containers;
}

std::vector<ListedKey> listedKeys(const std::vector<Container>& containers) {
  std::vector<ListedKey> keys;
  for (const Container& container : containers) {
    ListedKey key{container.record, {}, {}};
    if (container.certificate.empty()) {
      const bool holdsNone = container.status == static_cast<DWORD>(SCARD_E_NO_KEY_CONTAINER);
      key.problem = holdsNone ? "the token holds no certificate for it" : container.whyNone;
    } else {
      try {
        key.certificate = decodeCertificate(container.certificate);
      } catch (const ToolError& error) {
        key.problem = error.what();
      }
    }
    keys.push_back(std::move(key));
  }
  return keys;
}

const Container& chooseContainer(const std::vector<Container>& containers, std::optional<int> key,
                                 bool (*fits)(const ContainerRecord&), const char* purpose) {
  if (key) {
    if (*key < 1 || static_cast<std::size_t>(*key) > containers.size())
      throw ToolError(ExitCode::kNotFound, "there is no key " + std::to_string(*key),
                      "\"orvane-card list\" shows the keys that there are, counted from 1.");
    return containers[static_cast<std::size_t>(*key) - 1];
  }
  const Container* choice = nullptr;
  for (const Container& container : containers) {
    if (!fits(container.record)) continue;
    if (!choice || (container.record.isDefault() && !choice->record.isDefault())) choice = &container;
  }
  if (!choice) throw ToolError(ExitCode::kNotFound, std::string("the token has no key that can ") + purpose);
  return *choice;
}

}  // namespace orvane::tool
