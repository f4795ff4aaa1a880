#include "log/process_name.h"

#include <type_traits>

namespace orvane {
namespace {

ProcessName ownName;
// Nothing is destroyed, so it is of use even after its turn.
static_assert(std::is_trivially_destructible_v<ProcessName>);

}  // namespace

ProcessName& processName() noexcept { return ownName; }

}  // namespace orvane
