#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "import_table.h"
#include "machine.h"
#include "registry_view.h"
#include "trace.h"
#include "transmission_text.h"

namespace orvane::test::machine {
namespace {

// What a thread of the minidriver does.
struct ThreadWork {
  PTP_WORK_CALLBACK procedure;
  void* argument;
};

// What the diverted calls answer.
struct Diverted {
  std::mutex mutex;
  std::optional<SYSTEMTIME> localTime;
  bool hasTempFolder = true;
  ResourceManager manager;
  std::map<PTP_WORK, ThreadWork> threadWork;  // what the minidriver has threads for
  std::vector<PTP_WORK> heldThreads;
  Lines threadCreations;
  bool threadsFail = false;
  std::vector<DWORD> threadIds;  // of the threads that are inside it
  bool pausesEnd = false;
  std::vector<unsigned> pauses;
};

// Never destroyed: the minidriver may call until the process ends.
Diverted& diverted() {
  static auto* const instance = new Diverted;
  return *instance;
}

bool isZero(const void* buffer, DWORD size) {
  const auto* const bytes = static_cast<const BYTE*>(buffer);
  return std::all_of(bytes, bytes + size, [](BYTE byte) { return byte == 0; });
}

LONG WINAPI divertedStatus(SCARDHANDLE card, LPSTR readerName, LPDWORD readerNameLength, LPDWORD, LPDWORD, LPBYTE atr,
                           LPDWORD atrLength) {
  const std::lock_guard lock(diverted().mutex);
  Trace::note(statusQuestionText(card, *readerNameLength, *atrLength,
                                 isZero(readerName, *readerNameLength) && isZero(atr, *atrLength)));
  const ResourceManager& manager = diverted().manager;
  if (manager.statusResult != SCARD_S_SUCCESS) return manager.statusResult;
  const std::size_t size = manager.readerName.size() + (manager.hasNameNul ? 1 : 0);
  if (size > *readerNameLength) return SCARD_E_INSUFFICIENT_BUFFER;
  std::memcpy(readerName, manager.readerName.c_str(), size);
  *readerNameLength = static_cast<DWORD>(size);
  return SCARD_S_SUCCESS;
}

LONG WINAPI divertedTransmit(SCARDHANDLE card, LPCSCARD_IO_REQUEST sendHeader, LPCBYTE command, DWORD commandLength,
                             LPSCARD_IO_REQUEST receiveHeader, LPBYTE reply, LPDWORD replyLength) {
  const std::lock_guard lock(diverted().mutex);
  Trace::note(transmissionText(card, sendHeader->dwProtocol, sendHeader->cbPciLength, receiveHeader != nullptr,
                               *replyLength, Bytes(command, command + commandLength)));
  const ResourceManager& manager = diverted().manager;
  if (manager.transmitResult != SCARD_S_SUCCESS) return manager.transmitResult;
  if (manager.reply.size() > *replyLength) return SCARD_E_INSUFFICIENT_BUFFER;
  std::copy(manager.reply.begin(), manager.reply.end(), reply);
  *replyLength = static_cast<DWORD>(manager.reply.size());
  return SCARD_S_SUCCESS;
}

void WINAPI divertedLocalTime(LPSYSTEMTIME time) {
  const std::lock_guard lock(diverted().mutex);
  if (diverted().localTime) {
    *time = *diverted().localTime;
  } else {
    GetLocalTime(time);
  }
}

DWORD WINAPI divertedTempPath(DWORD size, LPSTR buffer) {
  {
    const std::lock_guard lock(diverted().mutex);
    if (!diverted().hasTempFolder) return 0;
  }
  return GetTempPathA(size, buffer);
}

void CALLBACK runNoted(PTP_CALLBACK_INSTANCE instance, void*, PTP_WORK work) {
  ThreadWork noted{};
  {
    const std::lock_guard lock(diverted().mutex);
    diverted().threadIds.push_back(GetCurrentThreadId());
    noted = diverted().threadWork.at(work);
  }
  noted.procedure(instance, noted.argument, work);
  // The system may lend the same thread to somebody else next.
  const std::lock_guard lock(diverted().mutex);
  std::erase(diverted().threadIds, GetCurrentThreadId());
}

PTP_WORK WINAPI divertedCreateThreadpoolWork(PTP_WORK_CALLBACK procedure, void* argument,
                                             PTP_CALLBACK_ENVIRON environment) {
  const std::lock_guard lock(diverted().mutex);
  if (diverted().threadsFail) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  diverted().threadCreations.push_back(std::string("pool=") + (environment->Pool == nullptr ? "default" : "own") +
                                       " long=" + std::to_string(environment->u.s.LongFunction));
  const PTP_WORK work = CreateThreadpoolWork(runNoted, nullptr, environment);
  if (work != nullptr) diverted().threadWork[work] = {procedure, argument};
  return work;
}

void WINAPI divertedSetEventWhenCallbackReturns(PTP_CALLBACK_INSTANCE instance, HANDLE event) {
  {
    const std::lock_guard lock(diverted().mutex);
    diverted().threadCreations.push_back("its end is announced by the pool");
  }
  SetEventWhenCallbackReturns(instance, event);
}

// A new thread stands still until the test lets it go, so that its first log line does not fall between those of the
// call that starts it.
void WINAPI divertedSubmitThreadpoolWork(PTP_WORK work) {
  const std::lock_guard lock(diverted().mutex);
  diverted().heldThreads.push_back(work);
}

void WINAPI divertedCloseThreadpoolWork(PTP_WORK work) {
  {
    const std::lock_guard lock(diverted().mutex);
    diverted().threadWork.erase(work);
    std::erase(diverted().heldThreads, work);
  }
  CloseThreadpoolWork(work);
}

// What a thread of the minidriver waits for with a limit is its rest between two polls. One that ends at once has still
// seen whether the thread is asked to wake up. The caller that starts a thread waits for it to arrive; one that stands
// still on purpose counts as arrived.
DWORD WINAPI divertedWaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  DWORD limit = milliseconds;
  if (milliseconds != INFINITE) {
    const std::lock_guard lock(diverted().mutex);
    const auto& own = diverted().threadIds;
    if (std::find(own.begin(), own.end(), GetCurrentThreadId()) != own.end()) {
      diverted().pauses.push_back(milliseconds);
      if (diverted().pausesEnd) limit = 0;
    } else if (!diverted().heldThreads.empty()) {
      return WAIT_OBJECT_0;
    }
  }
  return WaitForSingleObject(handle, limit);
}

// The last blocks that came to the minidriver's `free`, by their position modulo the size. No lock and no memory: it
// may be called from anywhere.
std::array<std::atomic<const void*>, 256> freedBlocks;
std::atomic<std::size_t> freedCount{0};

void divertedFree(void* block) {
  freedBlocks[freedCount.fetch_add(1) % freedBlocks.size()] = block;
  std::free(block);
}

LogLevelValue numberValue(const LogLevelValue& value) {
  LogLevelValue stored = value;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&value.number);
  stored.bytes.assign(bytes, bytes + sizeof(value.number));
  return stored;
}

}  // namespace

void divertCalls(void* module) {
  {
    // Those of a module that is gone, whose numbers other threads may have now.
    const std::lock_guard lock(diverted().mutex);
    diverted().threadIds.clear();
    if (!diverted().threadWork.empty()) throw std::logic_error("the minidriver has left work in the system's pool");
  }
  divertImports(module, {divert("SCardStatusA", divertedStatus), divert("SCardTransmit", divertedTransmit),
                         divert("GetLocalTime", divertedLocalTime), divert("GetTempPathA", divertedTempPath),
                         divert("CreateThreadpoolWork", divertedCreateThreadpoolWork),
                         divert("SubmitThreadpoolWork", divertedSubmitThreadpoolWork),
                         divert("SetEventWhenCallbackReturns", divertedSetEventWhenCallbackReturns),
                         divert("CloseThreadpoolWork", divertedCloseThreadpoolWork),
                         divert("WaitForSingleObject", divertedWaitForSingleObject), divert("free", divertedFree)});
}

void setLogLevel(const LogLevelValue& value) {
  constexpr const char* kKey = "Software\\Brightfold\\Orvane";
  using Type = LogLevelValue::Type;
  // Its key goes when the process ends, after the last test.
  static RegistryView registry;
  if (value.type == Type::kAbsent) {
    registry.removeValue(kKey, "logLevel");
    return;
  }
  const LogLevelValue stored = value.type == Type::kNumber ? numberValue(value) : value;
  const DWORD type = value.type == Type::kNumber ? REG_DWORD : value.type == Type::kText ? REG_SZ : REG_BINARY;
  registry.setValue(kKey, "logLevel", type, stored.bytes.data(), static_cast<DWORD>(stored.bytes.size()));
}

void setLocalTime(const std::optional<SYSTEMTIME>& time) {
  const std::lock_guard lock(diverted().mutex);
  diverted().localTime = time;
}

void setTempFolder(const std::optional<std::string>& folder) {
  const std::lock_guard lock(diverted().mutex);
  diverted().hasTempFolder = folder.has_value();
  if (folder) SetEnvironmentVariableA("TMP", folder->c_str());
}

void setResourceManager(const ResourceManager& manager) {
  const std::lock_guard lock(diverted().mutex);
  diverted().manager = manager;
}

std::string processName() {
  char program[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, program, MAX_PATH);
  const std::string path(program);
  const std::string name = path.substr(path.find_last_of("\\/") + 1);
  return name.substr(0, name.find('.'));
}

void setThreadsFail(bool fail) {
  const std::lock_guard lock(diverted().mutex);
  diverted().threadsFail = fail;
}

void setPausesEnd(bool end) {
  const std::lock_guard lock(diverted().mutex);
  diverted().pausesEnd = end;
}

std::vector<unsigned> takePauses() {
  const std::lock_guard lock(diverted().mutex);
  return std::exchange(diverted().pauses, {});
}

Lines takeThreadCreations() {
  const std::lock_guard lock(diverted().mutex);
  return std::exchange(diverted().threadCreations, {});
}

unsigned takeFrees(const void* block) {
  unsigned count = 0;
  for (std::atomic<const void*>& freed : freedBlocks) {
    const void* expected = block;
    if (freed.compare_exchange_strong(expected, nullptr)) ++count;
  }
  return count;
}

void startThreads() {
  const std::lock_guard lock(diverted().mutex);
  for (const PTP_WORK work : diverted().heldThreads) SubmitThreadpoolWork(work);
  diverted().heldThreads.clear();
}

}  // namespace orvane::test::machine
