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

Containers good() { return {container(0, true, false), container(1, false, true), container(2, true, true)}; }

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
       "The token holds no keys, so Windows shows no certificate."},
      {"unused places",
       [](Containers& all) {
         all[1] = {{1, "", 0, 0, 0}, "", {}, {}, false, "", {}, "", "", "", true};
       },
       StepState::kOk, "2 keys, each with its certificate: owner 0, owner 2."},
      {"nothing but unused places",
       [](Containers& all) {
         for (ContainerFacts& each : all) each.record.flags = 0;
       },
       StepState::kBroken, "The token holds no keys, so Windows shows no certificate."},
      {"unreadable keys", [](Containers& all) { all[1].keysProblem = "why"; }, StepState::kBroken,
       "The public keys of container 1 cannot be read: why."},
      {"other size", [](Containers& all) { all[0].record.signatureBits = 1024; }, StepState::kBroken,
       "\"cmapfile\" states a signature key of 1024 bits for container 0, but the public key has 2048."},
      {"stated, not there", [](Containers& all) { all[1].keyExchange.reset(); }, StepState::kBroken,
       "\"cmapfile\" states a key-exchange key of 2048 bits for container 1, but the public key has 0."},
      {"there, not stated", [](Containers& all) { all[0].keyExchange = key(1); }, StepState::kBroken,
       "\"cmapfile\" states a key-exchange key of 0 bits for container 0, but the public key has 2048."},
      {"unreadable certificate",
       [](Containers& all) {
         all[2].hasCertificate = false;
         all[2].certificateProblem = "why";
       },
       StepState::kBroken, "The certificate of container 2 cannot be read: why."},
      {"no certificate", [](Containers& all) { all[1].hasCertificate = false; }, StepState::kWarning,
       "The key of container 1 has no certificate, so Windows shows none for it."},
      {"no certificate at all",
       [](Containers& all) {
         for (ContainerFacts& each : all) each.hasCertificate = false;
       },
       StepState::kBroken, "No key on the token has a certificate, so Windows shows none."},
      {"another signature key's certificate", [](Containers& all) { all[0].certified = key(9); }, StepState::kBroken,
       "The key of container 0 is not the one in its certificate."},
      {"another exchange key's certificate", [](Containers& all) { all[1].certified = key(9); }, StepState::kBroken,
       "The key of container 1 is not the one in its certificate."},
      {"another exponent", [](Containers& all) { all[1].certified->exponent = 3; }, StepState::kBroken,
       "The key of container 1 is not the one in its certificate."},
      {"certificate of another kind of key", [](Containers& all) { all[2].certified.reset(); }, StepState::kBroken,
       "The key of container 2 is not the one in its certificate."},
      {"not valid today", [](Containers& all) { all[0].current = false; }, StepState::kWarning,
       "The certificate of container 0 (owner 0) is valid from 2026-01-01 to 2027-01-01, which is not today."},
      {"equal names", [](Containers& all) { all[2].record.guid = "name0"; }, StepState::kBroken,
       "Containers 0 and 2 have the same name, so Windows cannot tell them apart."},
      {"no default", [](Containers& all) { all[0].record.flags = 1; }, StepState::kWarning,
       "\"cmapfile\" marks 0 containers as the default one."},
      {"two defaults", [](Containers& all) { all[1].record.flags = 3; }, StepState::kWarning,
       "\"cmapfile\" marks 2 containers as the default one."},
      {"a warning and worse",
       [](Containers& all) {
         all[0].current = false;
         all[1].certified = key(9);
       },
       StepState::kBroken, "The key of container 1 is not the one in its certificate."},
      {"several",
       [](Containers& all) {
         for (ContainerFacts& each : all) each.certified = key(9);
         all[1].record.guid = "name0";
       },
       StepState::kBroken,
       "The key of container 0 is not the one in its certificate. The key of container 1 is not the one in its "
       "certificate. The key of container 2 is not the one in its certificate. And 1 more."},
  };
  for (const Case& row : cases) {
    Containers containers = good();
    row.change(containers);
    const Finding finding = judgeKeys(containers);
    EXPECT_EQ(finding.state, row.state) << row.what;
    EXPECT_EQ(finding.text, row.text) << row.what;
    EXPECT_EQ(finding.advice.empty(), row.state == StepState::kOk) << row.what;
  }
}

}  // namespace
}  // namespace orvane::tool
