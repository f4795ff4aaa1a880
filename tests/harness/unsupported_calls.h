// The one list of the entry points that the card does not offer.
#ifndef ORVANE_TESTS_HARNESS_UNSUPPORTED_CALLS_H
#define ORVANE_TESTS_HARNESS_UNSUPPORTED_CALLS_H

// ORVANE_TESTS_FOR_EACH_UNSUPPORTED expands X(name) for the 24 entry points that refuse whatever they are asked.
#define ORVANE_TESTS_FOR_EACH_UNSUPPORTED(X) \
  X(CardAuthenticateChallenge)               \
  X(CardConstructDHAgreement)                \
  X(CardCreateContainer)                     \
  X(CardCreateContainerEx)                   \
  X(CardCreateDirectory)                     \
  X(CardCreateFile)                          \
  X(CardDeleteContainer)                     \
  X(CardDeleteDirectory)                     \
  X(CardDeleteFile)                          \
  X(CardDeriveKey)                           \
  X(CardDestroyDHAgreement)                  \
  X(CardDestroyKey)                          \
  X(CardGetAlgorithmProperty)                \
  X(CardGetChallenge)                        \
  X(CardGetChallengeEx)                      \
  X(CardGetKeyProperty)                      \
  X(CardGetSharedKeyHandle)                  \
  X(CardImportSessionKey)                    \
  X(CardProcessEncryptedData)                \
  X(CardSetKeyProperty)                      \
  X(CardUnblockPin)                          \
  X(CardWriteFile)                           \
  X(MDEncryptData)                           \
  X(MDImportSessionKey)

#endif  // ORVANE_TESTS_HARNESS_UNSUPPORTED_CALLS_H
