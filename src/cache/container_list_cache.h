// The container lists of all tokens seen by this process.
#ifndef ORVANE_CACHE_CONTAINER_LIST_CACHE_H
#define ORVANE_CACHE_CONTAINER_LIST_CACHE_H

#include <map>
#include <memory>
#include <string>

#include "cache/container_entry.h"

namespace orvane {

// ContainerListCache maps a token's serial to its latest container list. It is used without any of the module's locks:
// the lists and the map are immutable snapshots, replaced as a whole by an atomic exchange, so a reader never waits
// while a writer makes its snapshot, and keeps what it found for as long as it holds it. (Only the load and the
// exchange of the pointer may take a short lock of the C++ library's own.)
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

  // Applies `change` to a copy of the map and puts the copy in place; starts over if another thread was faster.
  template <typename Change>
  void exchange(const Change& change);

  std::shared_ptr<const Lists> lists_ = std::make_shared<const Lists>();
};

}  // namespace orvane

#endif  // ORVANE_CACHE_CONTAINER_LIST_CACHE_H
