// The container lists of all tokens seen by this process.
#ifndef ORVANE_CACHE_CONTAINER_LIST_CACHE_H
#define ORVANE_CACHE_CONTAINER_LIST_CACHE_H

#include <map>
#include <memory>
#include <string>

#include "cache/container_entry.h"
#include "support/mutex.h"

namespace orvane {

// ContainerListCache maps a token's serial to its latest container list. The lists and the map are immutable snapshots,
// replaced as a whole, so a reader keeps what it found for as long as it holds it, and nobody ever waits for what
// another thread does with a snapshot. A lock of its own is held while the one pointer to the current map is copied or
// put in place, and nothing is allocated, freed or called under it; no other lock of the module is taken. (An atomic
// shared_ptr does the same inside. The one for all compilers, std::atomic_load and its like, is deprecated, and its
// successor, std::atomic<std::shared_ptr>, is missing in the cross compiler's library, as its <version> says.)
class ContainerListCache {
 public:
  // find returns the list stored for `serial`, or null when there is none. An empty list is not null.
  std::shared_ptr<const ContainerList> find(const std::string& serial) const;

  // replace stores `list`, which is not null and shared from now on, for `serial`, in place of any list there. Throws
  // std::bad_alloc, then nothing changed.
  void replace(const std::string& serial, std::shared_ptr<const ContainerList> list);

  // erase drops the list of `serial`, if there is one. Throws std::bad_alloc, then nothing changed.
  void erase(const std::string& serial);

 private:
  using Lists = std::map<std::string, std::shared_ptr<const ContainerList>>;

  // The map as it is now.
  std::shared_ptr<const Lists> current() const;

  // Makes `changed` the current map if `of`, of which it is a changed copy and which the caller holds, still is; tells
  // whether it did.
  bool putInPlace(const std::shared_ptr<const Lists>& of, std::shared_ptr<const Lists> changed);

  // Applies `change` to a copy of the map and puts the copy in place; starts over if another thread was faster.
  template <typename Change>
  void exchange(const Change& change);

  mutable Mutex pointerMutex_;
  std::shared_ptr<const Lists> lists_ ORVANE_GUARDED_BY(pointerMutex_) = std::make_shared<const Lists>();
};

}  // namespace orvane

#endif  // ORVANE_CACHE_CONTAINER_LIST_CACHE_H
