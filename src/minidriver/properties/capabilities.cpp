// The query entry points: CardQueryCapabilities, CardQueryFreeSpace, CardQueryKeySizes.
#include "minidriver/properties/capabilities.h"

#include "cache/process_state.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"

using namespace orvane;

DWORD WINAPI CardQueryCapabilities(PCARD_DATA pCardData, PCARD_CAPABILITIES pCardCapabilities) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pCardCapabilities == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardQueryCapabilities: invalid parameter(s)");
    }
    *pCardCapabilities = cardCapabilities();
    return succeed("CardQueryCapabilities: populated with RSA support, keygen disabled");
  });
}

DWORD WINAPI CardQueryFreeSpace(PCARD_DATA pCardData, DWORD, PCARD_FREE_SPACE_INFO pCardFreeSpaceInfo) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pCardFreeSpaceInfo == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardQueryFreeSpace: invalid parameter(s)");
    }
    // The only one of the three that asks for a context, as callers know it.
    if (!contextOf(*pCardData)) return refuse(ERROR_INVALID_PARAMETER, "CardQueryFreeSpace: null provider context");
    const CARD_FREE_SPACE_INFO info = freeSpaceInfo(processState().keySlotsUsed);
    *pCardFreeSpaceInfo = info;
    return succeed("CardQueryFreeSpace: BytesAvailable=", info.dwBytesAvailable,
                   " MaxContainers=", info.dwMaxKeyContainers, " ContainersAvailable=", info.dwKeyContainersAvailable);
  });
}

DWORD WINAPI CardQueryKeySizes(PCARD_DATA pCardData, DWORD dwKeySpec, DWORD, PCARD_KEY_SIZES pKeySizes) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pKeySizes == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardQueryKeySizes: invalid parameter(s)");
    }
    const CARD_KEY_SIZES sizes = keySizes(2048);
    *pKeySizes = sizes;
    return succeed("CardQueryKeySizes: dwKeySpec=", dwKeySpec, " min=", sizes.dwMinimumBitlen,
                   " default=", sizes.dwDefaultBitlen, " max=", sizes.dwMaximumBitlen);
  });
}
