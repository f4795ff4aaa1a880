// Calling the token library directly, function by function.
#ifndef ORVANE_TESTS_HARNESS_TOKEN_REPLAY_H
#define ORVANE_TESTS_HARNESS_TOKEN_REPLAY_H

#include <string_view>

namespace orvane::test {

// The thirteen functions, by the names that the software token gives them.
inline constexpr std::string_view kTokenFunctions[] = {"orvane_init",
                                                       "orvane_getConnectedDeviceList",
                                                       "orvane_initDevice",
                                                       "orvane_getTokenInfo",
                                                       "orvane_validatePassword",
                                                       "orvane_getKeyPairList",
                                                       "orvane_changeUserPassword",
                                                       "orvane_changeSOPassword",
                                                       "orvane_signHash",
                                                       "orvane_decrypt",
                                                       "orvane_findCertificateForKey",
                                                       "orvane_setExternalSmartcardHandle",
                                                       "orvane_clearExternalSmartcardHandle"};

// Calls one of them with arguments that the token kSerial accepts; PINs change to themselves.
// Throws what the call throws, and std::out_of_range for another name.
void replayTokenCall(std::string_view function);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_TOKEN_REPLAY_H
