#include <gtest/gtest.h>

#include <functional>

#include "doctor/checks.h"

namespace orvane::tool {
namespace {

using Containers = std::vector<ContainerFacts>;

PublicKey key(std::uint8_t number) { return {0x2400, 2048, 65537, Bytes(256, number)}; }

ContainerFacts container(int index, bool signature, bool exchange) {
  ContainerFacts facts;
  const auto number = static_cast<std::uint8_t>(index + 1);
  const auto bits = [](bool has) { return static_cast<std::uint16_t>(has ? 2048 : 0); };
  facts.record = {index, "name" + std::to_string(index), static_cast<std::uint8_t>(index == 0 ? 3 : 1), bits(signature),
                  bits(exchange)};
  if (signature) facts.signature = key(number);
  if (exchange) facts.keyExchange = key(number);
  facts.hasCertificate = true;
  facts.certified = key(number);
  facts.subject = "owner " + std::to_string(index);
  facts.notBefore = "2026-01-01T00:00:00Z";
  facts.notAfter = "2027-01-01T00:00:00Z";
  return facts;
}

Containers goodKeys() { return {container(0, true, false), container(1, false, true), container(2, true, true)}; }

TEST(ToolDoctorKeys, ContainersKeysAndCertificatesMustFit) {
  struct Case {
    const char* what;
    std::function<void(Containers&)> change;
    StepState state;
    const char* text;
  };
  const Case cases[] = {
      {"good", [](Containers&) {}, StepState::kOk, "3 keys, each with its certificate: owner 0, owner 1, owner 2."},
      {"one", [](Containers& all) { all.resize(1); }, StepState::kOk, "One key with its certificate: owner 0."},
      {"none", [](Containers& all) { all.clear(); }, StepState::kBroken,
       "The token was opened and holds no keys, so there is no certificate to show."},
      {"unused places",
       [](Containers& all) {
         all[1] = {{1, "", 0, 0, 0}, "", {}, {}, false, "", {}, "", "", ""};
       },
       StepState::kOk, "2 keys, each with its certificate: owner 0, owner 2."},
      {"nothing but unused places",
       [](Containers& all) {
         for (ContainerFacts& each : all) each.record.flags = 0;
       },
       StepState::kBroken, "The token was opened and holds no keys, so there is no certificate to show."},
      {"unreadable keys", [](Containers& all) { all[1].keysProblem = "why"; }, StepState::kBroken,
       "Key 2 of 3 (encryption) cannot be read: why."},
      {"other size", [](Containers& all) { all[0].record.signatureBits = 1024; }, StepState::kBroken,
       "Key 1 of 3 (signing) is listed with 1024 bits for signing, but its public key has 2048."},
      {"stated, not there", [](Containers& all) { all[1].keyExchange.reset(); }, StepState::kBroken,
       "Key 2 of 3 (encryption) is listed with 2048 bits for encryption, but its public key has 0."},
      {"there, not stated", [](Containers& all) { all[0].keyExchange = key(1); }, StepState::kBroken,
       "Key 1 of 3 (signing) is listed with 0 bits for encryption, but its public key has 2048."},
      {"unreadable certificate",
       [](Containers& all) {
         all[2].hasCertificate = false;
         all[2].certificateProblem = "why";
       },
       StepState::kBroken, "The certificate of key 3 of 3 (signing and encryption) cannot be read: why."},
      {"no certificate", [](Containers& all) { all[1].hasCertificate = false; }, StepState::kWarning,
       "Key 2 of 3 (encryption) has no certificate, so programs do not show it."},
      {"no certificate at all",
       [](Containers& all) {
         for (ContainerFacts& each : all) each.hasCertificate = false;
       },
       StepState::kBroken, "No key on the token has a certificate, so programs show none."},
      {"another signature key's certificate", [](Containers& all) { all[0].certified = key(9); }, StepState::kBroken,
       "The certificate of key 1 of 3 (signing) belongs to another key."},
      {"another exchange key's certificate", [](Containers& all) { all[1].certified = key(9); }, StepState::kBroken,
       "The certificate of key 2 of 3 (encryption) belongs to another key."},
      {"another exponent", [](Containers& all) { all[1].certified->exponent = 3; }, StepState::kBroken,
       "The certificate of key 2 of 3 (encryption) belongs to another key."},
      {"certificate of another kind of key", [](Containers& all) { all[2].certified.reset(); }, StepState::kBroken,
       "The certificate of key 3 of 3 (signing and encryption) belongs to another key."},
      {"expired", [](Containers& all) { all[0].notAfter = "2026-06-14T23:59:59Z"; }, StepState::kWarning,
       "The certificate of key 1 of 3 (signing), owner 0, expired on 2026-06-14."},
      {"not yet valid", [](Containers& all) { all[0].notBefore = "2026-06-15T12:00:01Z"; }, StepState::kWarning,
       "The certificate of key 1 of 3 (signing), owner 0, becomes valid on 2026-06-15."},
      {"to expire in a month", [](Containers& all) { all[0].notAfter = "2026-07-15T00:00:00Z"; }, StepState::kOk,
       "3 keys, each with its certificate: owner 0, owner 1, owner 2."},
      {"soon to expire", [](Containers& all) { all[0].notAfter = "2026-07-14T00:00:00Z"; }, StepState::kWarning,
       "The certificate of key 1 of 3 (signing), owner 0, expires in 29 days, on 2026-07-14."},
      {"to expire tomorrow", [](Containers& all) { all[0].notAfter = "2026-06-16T00:00:00Z"; }, StepState::kWarning,
       "The certificate of key 1 of 3 (signing), owner 0, expires tomorrow, on 2026-06-16."},
      {"to expire today", [](Containers& all) { all[0].notAfter = "2026-06-15T12:00:00Z"; }, StepState::kWarning,
       "The certificate of key 1 of 3 (signing), owner 0, expires today, on 2026-06-15."},
      {"equal names", [](Containers& all) { all[2].record.guid = "name0"; }, StepState::kBroken,
       "Key 1 of 3 (signing) and key 3 of 3 (signing and encryption) have the same name, so Windows cannot tell them "
       "apart."},
      {"no default", [](Containers& all) { all[0].record.flags = 1; }, StepState::kWarning,
       "0 keys are marked as the default one instead of 1."},
      {"two defaults", [](Containers& all) { all[1].record.flags = 3; }, StepState::kWarning,
       "2 keys are marked as the default one instead of 1."},
      {"a warning and worse",
       [](Containers& all) {
         all[0].notAfter = "2026-06-14T00:00:00Z";
         all[1].certified = key(9);
       },
       StepState::kBroken, "The certificate of key 2 of 3 (encryption) belongs to another key."},
      {"several",
       [](Containers& all) {
         for (ContainerFacts& each : all) each.certified = key(9);
         all[1].record.guid = "name0";
       },
       StepState::kBroken,
       "The certificate of key 1 of 3 (signing) belongs to another key. The certificate of key 2 of 3 (encryption) "
       "belongs "
       "to another key. The certificate of key 3 of 3 (signing and encryption) belongs to another key. And 1 more."},
  };
  for (const Case& row : cases) {
    Containers containers = goodKeys();
    row.change(containers);
    const Finding finding = judgeKeys(containers, "2026-06-15T12:00:00Z");
    EXPECT_EQ(finding.state, row.state) << row.what;
    EXPECT_EQ(finding.text, row.text) << row.what;
    EXPECT_EQ(finding.advice.empty(), row.state == StepState::kOk) << row.what;
  }
}

}  // namespace
}  // namespace orvane::tool
