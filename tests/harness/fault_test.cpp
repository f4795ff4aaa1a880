#include <algorithm>

#include "harness/all_calls.h"
#include "minidriver/frame/provider_context.h"

namespace orvane::test {
namespace {

constexpr unsigned char kPoison = 0xA5;

}  // namespace

CallOutputs::~CallOutputs() {
  for (std::size_t i = 0; i < buffersBefore_.size(); ++i) {
    void* left = nullptr;
    std::memcpy(&left, buffers_[i], sizeof(left));
    if (left != nullptr && left != buffersBefore_[i]) release_(left);
  }
}

void* CallOutputs::addBytes(std::size_t size) {
  Block& block = blocks_.emplace_back((size + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t) + 1);
  std::memset(block.data(), kPoison, block.size() * sizeof(std::uint64_t));
  return block.data();
}

std::uint8_t* CallOutputs::addInput(const void* bytes, std::size_t size) {
  auto* const copy = static_cast<std::uint8_t*>(addBytes(size));
  std::memcpy(copy, bytes, size);
  return copy;
}

void CallOutputs::startCall() {
  before_.assign(blocks_.begin(), blocks_.end());
  buffersBefore_.clear();
  for (const void* const place : buffers_) {
    void* pointer = nullptr;
    std::memcpy(&pointer, place, sizeof(pointer));
    buffersBefore_.push_back(pointer);
  }
}

bool CallOutputs::isUntouched() const {
  return std::equal(before_.begin(), before_.end(), blocks_.begin(), blocks_.end());
}

void FaultTest::TearDown() {
  closeAll();
  DriverTest::TearDown();
}

void FaultTest::startAnew() {
  closeAll();
  softtoken_set_connected(kFaultSerial, 0);
  reloadDriver();
  const SofttokenTokenDefinition definition{kFaultSerial, "2.1.0", kFaultPin, kFaultSoPin, 3, 3, 0, 0, kSofttokenKeep};
  ASSERT_EQ(softtoken_define_token(&definition), 1);
  for (const std::uint8_t id : {std::uint8_t{1}, std::uint8_t{2}}) {
    const OrvaneKeyPair key = makeKey(id, 3, id == 1 ? 2048 : 4096);
    const OrvaneCertificate certificate = makeCertificate(id, 100);
    ASSERT_EQ(softtoken_add_key(kFaultSerial, &key), 1);
    ASSERT_EQ(softtoken_set_certificate(kFaultSerial, key.credentialId, &certificate), 1);
  }
  failAllocationsAfter(std::nullopt);
  resourceManager = ResourceManager{};
  setDebugLog(true);
  forget();
}

CARD_DATA& FaultTest::open(Before before) {
  startAnew();
  CARD_DATA& record = records_.emplace_back(newRecord());
  EXPECT_EQ(acquire(record), 0u);
  record.hScard = kFaultCardHandle;
  std::string pin = kFaultPin;
  auto* const pinBytes = reinterpret_cast<PBYTE>(pin.data());
  const auto pinSize = static_cast<DWORD>(pin.size());
  if (before == Before::kPinCached || before == Before::kPinBumped) {
    EXPECT_EQ(record.pfnCardAuthenticateEx(&record, ROLE_USER, 0, pinBytes, pinSize, nullptr, nullptr, nullptr), 0u);
  }
  if (before == Before::kPinBumped) {
    EXPECT_EQ(record.pfnCardChangeAuthenticatorEx(&record, PIN_CHANGE_FLAG_CHANGEPIN, ROLE_USER, pinBytes, pinSize,
                                                  ROLE_USER, pinBytes, pinSize, 0, nullptr),
              0u);
  }
  if (before == Before::kListForgotten) {
    // The serial that the caller sets has no list yet.
    wchar_t other[] = L"0034CD";
    const SofttokenTokenDefinition definition{"0034CD", "2.1.0", kFaultPin, kFaultSoPin, 3, 3, 0, 0, kSofttokenKeep};
    EXPECT_EQ(softtoken_define_token(&definition), 1);
    const OrvaneKeyPair key = makeKey(1, 3);
    EXPECT_EQ(softtoken_add_key("0034CD", &key), 1);
    EXPECT_EQ(record.pfnCardSetProperty(&record, CP_CARD_SERIAL_NO, reinterpret_cast<PBYTE>(other),
                                        sizeof(other) - sizeof(wchar_t), 0),
              0u);
  }
  takeAllocations();
  forget();
  return record;
}

void FaultTest::closeAll() {
  for (CARD_DATA& record : records_) {
    if (record.pvVendorSpecific != nullptr) EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
  }
  records_.clear();
  softtoken_set_connected("0034CD", 0);
}

void FaultTest::expectUsable(bool isHandleForgotten) {
  failAllocationsAfter(std::nullopt);
  resourceManager = ResourceManager{};
  forget();
  CARD_DATA record = newRecord();
  EXPECT_EQ(acquire(record), 0u);
  for (const std::string& call : takeCalls()) {
    if (isHandleForgotten) EXPECT_EQ(call.find("[card "), std::string::npos) << call;
  }
  if (record.pvVendorSpecific == nullptr) return;
  record.hScard = kFaultCardHandle;
  PIN_SET state = 0;
  DWORD length = 0;
  EXPECT_EQ(record.pfnCardGetProperty(&record, CP_CARD_AUTHENTICATED_STATE, reinterpret_cast<PBYTE>(&state),
                                      sizeof(state), &length, 0),
            0u);
  // A signature takes every lock.
  signWithPreparedAnswer(record);
  EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
  forget();
}

}  // namespace orvane::test
