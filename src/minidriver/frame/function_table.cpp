#include "minidriver/frame/function_table.h"

namespace orvane {

void fillFunctionTable(CARD_DATA& cardData) noexcept {
#define ORVANE_FILL_SLOT(name) cardData.pfn##name = &(name);
  ORVANE_FOR_EACH_SLOT(ORVANE_FILL_SLOT)
#undef ORVANE_FILL_SLOT
}

}  // namespace orvane
