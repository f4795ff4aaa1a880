#include <gtest/gtest.h>

#include "doctor/checks.h"

namespace orvane::tool {
namespace {

LibraryFile libraryAt(const char* path, bool isSigned) {
  LibraryFile file;
  file.path = path;
  file.found = true;
  file.pe = PeFile{kMachineArm64, {}, isSigned};
  return file;
}

TEST(ToolDoctorLogon, ProtectionAndSignaturesDecide) {
  const LibraryFile plain = libraryAt("a.dll", false);
  const LibraryFile signedOne = libraryAt("b.dll", true);
  struct Case {
    const char* what;
    LogonFacts facts;
    StepState state;
    const char* text;
  };
  const Case cases[] = {
      {"nothing is protected",
       {std::nullopt, std::nullopt, {plain, plain}},
       StepState::kOk,
       "LSA protection is not switched on in the registry, Smart App Control is off. Without a signature: a.dll and "
       "a.dll. The logon process loads them all the same."},
      {"switched off",
       {0, 0, {plain, signedOne}},
       StepState::kOk,
       "LSA protection is not switched on in the registry, Smart App Control is off. Without a signature: a.dll. With "
       "a "
       "signature, which is not looked at here: b.dll. The logon process loads them all the same."},
      {"LSA protection",
       {1, std::nullopt, {plain, signedOne}},
       StepState::kWarning,
       "LSA protection is on (RunAsPPL 1), Smart App Control is off. Without a signature: a.dll. With a signature, "
       "which "
       "is not looked at here: b.dll. The logon process does not load such libraries, so the token is not offered at "
       "the "
       "logon screen; other programs are not concerned."},
      {"LSA protection without the firmware, all signed",
       {2, 2, {signedOne}},
       StepState::kOk,
       "LSA protection is on (RunAsPPL 2), Smart App Control is in evaluation, which blocks nothing. With a signature, "
       "which is not looked at here: b.dll. The logon process takes them only if the signature is Microsoft's."},
      {"Smart App Control",
       {std::nullopt, 1, {plain}},
       StepState::kWarning,
       "LSA protection is not switched on in the registry, Smart App Control is on. Without a signature: a.dll. "
       "Programs, "
       "the logon process among them, may be refused such libraries."},
      {"Smart App Control, all signed",
       {std::nullopt, 1, {signedOne}},
       StepState::kOk,
       "LSA protection is not switched on in the registry, Smart App Control is on. With a signature, which is not "
       "looked "
       "at here: b.dll."},
      {"no library",
       {1, std::nullopt, {}},
       StepState::kOk,
       "LSA protection is on (RunAsPPL 1), Smart App Control is off."},
  };
  for (const Case& row : cases) {
    const Finding finding = judgeLogon(row.facts);
    EXPECT_EQ(finding.state, row.state) << row.what;
    EXPECT_EQ(finding.text, row.text) << row.what;
    EXPECT_EQ(finding.advice.empty(), row.state == StepState::kOk) << row.what;
  }
}

}  // namespace
}  // namespace orvane::tool
