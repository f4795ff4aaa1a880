#include "softtoken/softtoken_control.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "softtoken/call_script.h"
#include "softtoken/call_text.h"
#include "softtoken/softtoken_pins.h"
#include "softtoken/token_calls.h"
#include "softtoken/token_store.h"

using namespace orvane::softtoken;

namespace {

std::string orEmpty(const char* text) { return text == nullptr ? std::string() : std::string(text); }

std::size_t writeText(const std::string& from, char* text, std::size_t capacity) {
  if (text != nullptr && capacity > from.size()) std::memcpy(text, from.c_str(), from.size() + 1);
  return from.size() + 1;
}

}  // namespace

extern "C" {

void softtoken_reset(void) {
  hidePins(false);
  callScript().reset();
  tokenStore().reset();
}

void softtoken_set_folder(const char* folder) { tokenStore().setFolder(orEmpty(folder)); }

int softtoken_define_token(const SofttokenTokenDefinition* definition) {
  if (definition == nullptr || definition->serial == nullptr) return 0;
  Token token;
  token.firmwareVersion = orEmpty(definition->firmwareVersion);
  token.userPin = Pin(orEmpty(definition->userPin), definition->userTries);
  token.soPin = Pin(orEmpty(definition->soPin), definition->soTries);
  token.fips = definition->fips != 0;
  token.initResult = definition->initResult;
  token.passwordValidated = definition->passwordValidated;
  tokenStore().define(definition->serial, std::move(token));
  return 1;
}

int softtoken_add_key(const char* serial, const OrvaneKeyPair* keyPair) {
  if (keyPair == nullptr) return 0;
  return tokenStore().withDefined(serial, [&](Token& token) { token.keys.push_back({*keyPair, nullptr}); });
}

int softtoken_clear_keys(const char* serial) {
  return tokenStore().withDefined(serial, [](Token& token) { token.keys.clear(); });
}

int softtoken_set_certificate(const char* serial, const unsigned char* credentialId,
                              const OrvaneCertificate* certificate) {
  if (credentialId == nullptr) return 0;
  CredentialId id;
  std::copy_n(credentialId, id.size(), id.begin());
  return tokenStore().withDefined(serial, [&](Token& token) {
    if (certificate == nullptr) {
      token.certificates.erase(id);
    } else {
      token.certificates[id] = *certificate;
    }
  });
}

int softtoken_set_connected(const char* serial, int connected) {
  return tokenStore().withDefined(serial, [&](Token& token) {
    token.connected = connected != 0;
    if (!token.connected) token.userPinValidated = false;
  });
}

int softtoken_set_firmware(const char* serial, const char* firmwareVersion) {
  return tokenStore().withDefined(serial, [&](Token& token) { token.firmwareVersion = orEmpty(firmwareVersion); });
}

int softtoken_set_init_result(const char* serial, int initResult) {
  return tokenStore().withDefined(serial, [&](Token& token) { token.initResult = initResult; });
}

int softtoken_set_password_validated(const char* serial, int passwordValidated) {
  return tokenStore().withDefined(serial, [&](Token& token) { token.passwordValidated = passwordValidated; });
}

int softtoken_set_tries_left(const char* serial, int userTriesLeft, int soTriesLeft) {
  return tokenStore().withDefined(serial, [&](Token& token) {
    token.userPin.setTriesLeft(userTriesLeft);
    token.soPin.setTriesLeft(soTriesLeft);
  });
}

int softtoken_queue(const char* functionName, const SofttokenReaction* reaction) {
  Function function{};
  if (reaction == nullptr || !findFunction(functionName, function)) return 0;
  Reaction copy{reaction->kind,
                reaction->delayMs,
                reaction->result,
                reaction->attempts,
                reaction->length,
                reaction->output != nullptr,
                {}};
  if (copy.hasOutput) copy.output.assign(reaction->output, reaction->output + reaction->outputLength);
  callScript().queue(function, std::move(copy));
  return 1;
}

std::size_t softtoken_queued(const char* functionName) {
  Function function{};
  return findFunction(functionName, function) ? callScript().queued(function) : 0;
}

const void* softtoken_last_plaintext(void) { return softtokenLastPlaintext(); }

unsigned long long softtoken_thread(void) { return currentThread(); }

std::size_t softtoken_calls(int threads, unsigned long long thread, char* text, std::size_t capacity) {
  std::string lines;
  for (const RecordedCall& call : callScript().calls()) {
    const bool sameThread = call.details.thread == thread;
    if (threads == kSofttokenAllThreads || sameThread == (threads == kSofttokenOnlyThread)) lines += call.text + "\n";
  }
  return writeText(lines, text, capacity);
}

std::size_t softtoken_call_count(void) { return callScript().calls().size(); }

std::size_t softtoken_call(std::size_t position, SofttokenCall* call, char* text, std::size_t capacity) {
  const std::vector<RecordedCall> calls = callScript().calls();
  if (position >= calls.size()) return 0;
  if (call != nullptr) *call = calls[position].details;
  return writeText(calls[position].text, text, capacity);
}

unsigned long long softtoken_handle_overlaps(void) { return callScript().handleOverlaps(); }

void softtoken_observe(SofttokenObserver observer) { callScript().observe(observer); }

void softtoken_clear_calls(void) { callScript().clearCalls(); }

void softtoken_hide_pins(int hidden) { hidePins(hidden != 0); }

int softtoken_gate(const char* functionName, int closed) {
  Function function{};
  if (!findFunction(functionName, function)) return 0;
  callScript().setGate(function, closed != 0);
  return 1;
}

int softtoken_gate_pass(const char* functionName, unsigned count) {
  Function function{};
  if (!findFunction(functionName, function)) return 0;
  callScript().passGate(function, count);
  return 1;
}

int softtoken_wait_held(const char* functionName, unsigned timeoutMs) {
  Function function{};
  if (!findFunction(functionName, function)) return 0;
  return callScript().waitHeld(function, std::chrono::milliseconds(timeoutMs));
}

}  // extern "C"
