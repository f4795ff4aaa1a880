#include "cache/container_list_cache.h"

#include <utility>

namespace orvane {

std::shared_ptr<const ContainerListCache::Lists> ContainerListCache::current() const {
  const LockGuard lock(pointerMutex_);
  return lists_;
}

bool ContainerListCache::putInPlace(const std::shared_ptr<const Lists>& of, std::shared_ptr<const Lists> changed) {
  const LockGuard lock(pointerMutex_);
  if (lists_ != of) return false;
  // Nothing is destroyed under the lock: the caller still holds the old map.
  lists_ = std::move(changed);
  return true;
}

std::shared_ptr<const ContainerList> ContainerListCache::find(const std::string& serial) const {
  const auto lists = current();
  const auto found = lists->find(serial);
  return found == lists->end() ? nullptr : found->second;
}

template <typename Change>
void ContainerListCache::exchange(const Change& change) {
  for (;;) {
    const auto seen = current();
    auto changed = std::make_shared<Lists>(*seen);
    change(*changed);
    if (putInPlace(seen, std::move(changed))) return;
  }
}

void ContainerListCache::replace(const std::string& serial, std::shared_ptr<const ContainerList> list) {
  exchange([&](Lists& lists) { lists.insert_or_assign(serial, list); });
}

void ContainerListCache::erase(const std::string& serial) {
  exchange([&](Lists& lists) { lists.erase(serial); });
}

}  // namespace orvane
