// Judging whether protected programs load the minidriver and the token library.
#include "doctor/checks.h"

namespace orvane::tool {
namespace {

// Microsoft Learn, "Configure added LSA protection": 1 is protection that the firmware guards, 2 without that. The
// logon process then loads a smart-card driver only with a signature of Microsoft's.
bool isProtected(const LogonFacts& facts) { return facts.lsaProtection.value_or(0) != 0; }

// Microsoft Learn, "Test your app with Smart App Control": 0 is off, 1 on, 2 evaluation, which blocks nothing.
bool isAppControlOn(const LogonFacts& facts) { return facts.smartAppControl.value_or(0) == 1; }

std::string settings(const LogonFacts& facts) {
  const std::string lsa = isProtected(facts)
                              ? "LSA protection is on (RunAsPPL " + std::to_string(*facts.lsaProtection) + ")"
                              : std::string("LSA protection is not switched on in the registry");
  const std::uint32_t state = facts.smartAppControl.value_or(0);
  return lsa + ", Smart App Control is " +
         (state == 1   ? "on"
          : state == 2 ? "in evaluation, which blocks nothing"
                       : "off") +
         ".";
}

// The libraries that are signed, or those that are not: "a and b".
std::string names(const LogonFacts& facts, bool isSigned) {
  std::string list;
  for (const LibraryFile& library : facts.libraries) {
    if (library.pe && library.pe->isSigned == isSigned) list += (list.empty() ? "" : " and ") + library.path;
  }
  return list;
}

}  // namespace

Finding judgeLogon(const LogonFacts& facts) {
  const std::string unsignedOnes = names(facts, false);
  const std::string signedOnes = names(facts, true);
  std::string text = settings(facts);
  if (!unsignedOnes.empty()) text += " Without a signature: " + unsignedOnes + ".";
  if (!signedOnes.empty()) text += " With a signature, which is not looked at here: " + signedOnes + ".";
  if (unsignedOnes.empty()) {
    if (isProtected(facts) && !signedOnes.empty())
      text += " The logon process takes them only if the signature is Microsoft's.";
    return ok(std::move(text));
  }
  if (isProtected(facts))
    return warning(
        text +
            " The logon process does not load such libraries, so the token is not offered at the logon "
            "screen; other programs are not concerned.",
        "Install the package that Microsoft has signed. LSA protection is there for good reasons; whether this "
        "machine can do without is for its administrators to say.");
  if (isAppControlOn(facts))
    return warning(text + " Programs, the logon process among them, may be refused such libraries.",
                   "Install the signed package. Smart App Control knows no exceptions for single libraries.");
  return ok(text + " The logon process loads them all the same.");
}

}  // namespace orvane::tool
