#include "cache/container_list_cache.h"

namespace orvane {

std::shared_ptr<const ContainerList> ContainerListCache::find(const std::string& serial) const {
  const auto lists = std::atomic_load(&lists_);
  const auto found = lists->find(serial);
  return found == lists->end() ? nullptr : found->second;
}

template <typename Change>
void ContainerListCache::exchange(const Change& change) {
  auto expected = std::atomic_load(&lists_);
  for (;;) {
    auto changed = std::make_shared<Lists>(*expected);
    change(*changed);
    if (std::atomic_compare_exchange_strong(&lists_, &expected, std::shared_ptr<const Lists>(std::move(changed))))
      return;
  }
}

void ContainerListCache::replace(const std::string& serial, std::shared_ptr<const ContainerList> list) {
  exchange([&](Lists& lists) { lists.insert_or_assign(serial, list); });
}

void ContainerListCache::erase(const std::string& serial) {
  exchange([&](Lists& lists) { lists.erase(serial); });
}

}  // namespace orvane
