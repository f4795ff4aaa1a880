// The one list of the function-table slots.
#ifndef ORVANE_MINIDRIVER_FRAME_FUNCTION_TABLE_H
#define ORVANE_MINIDRIVER_FRAME_FUNCTION_TABLE_H

#include "platform/card_module.h"

// ORVANE_FOR_EACH_SLOT expands X(name) for the 44 entry points that have a slot in CARD_DATA, in the order of the
// slots. The slot of an entry point is named "pfn" and its name. CardAcquireContext, the 45th export, has none.
#define ORVANE_FOR_EACH_SLOT(X) \
  X(CardDeleteContext)          \
  X(CardQueryCapabilities)      \
  X(CardDeleteContainer)        \
  X(CardCreateContainer)        \
  X(CardGetContainerInfo)       \
  X(CardAuthenticatePin)        \
  X(CardGetChallenge)           \
  X(CardAuthenticateChallenge)  \
  X(CardUnblockPin)             \
  X(CardChangeAuthenticator)    \
  X(CardDeauthenticate)         \
  X(CardCreateDirectory)        \
  X(CardDeleteDirectory)        \
  X(CardCreateFile)             \
  X(CardReadFile)               \
  X(CardWriteFile)              \
  X(CardDeleteFile)             \
  X(CardEnumFiles)              \
  X(CardGetFileInfo)            \
  X(CardQueryFreeSpace)         \
  X(CardQueryKeySizes)          \
  X(CardSignData)               \
  X(CardRSADecrypt)             \
  X(CardConstructDHAgreement)   \
  X(CardDeriveKey)              \
  X(CardDestroyDHAgreement)     \
  X(CardGetChallengeEx)         \
  X(CardAuthenticateEx)         \
  X(CardChangeAuthenticatorEx)  \
  X(CardDeauthenticateEx)       \
  X(CardGetContainerProperty)   \
  X(CardSetContainerProperty)   \
  X(CardGetProperty)            \
  X(CardSetProperty)            \
  X(MDImportSessionKey)         \
  X(MDEncryptData)              \
  X(CardImportSessionKey)       \
  X(CardGetSharedKeyHandle)     \
  X(CardGetAlgorithmProperty)   \
  X(CardGetKeyProperty)         \
  X(CardSetKeyProperty)         \
  X(CardDestroyKey)             \
  X(CardProcessEncryptedData)   \
  X(CardCreateContainerEx)

namespace orvane {

// fillFunctionTable sets the 44 slots to the exported functions of the same names. The slots that belong to the caller
// (`pfnCspGetDHAgreement`, `pfnCspUnpadData`) and the reserved ones (`pvUnused3`, `pvUnused4`) stay as they are.
void fillFunctionTable(CARD_DATA& cardData) noexcept;

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_FRAME_FUNCTION_TABLE_H
