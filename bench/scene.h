// The scene of all measurements: the loaded minidriver, the software token, contexts, and the log on or off.
#ifndef ORVANE_BENCH_SCENE_H
#define ORVANE_BENCH_SCENE_H

#include <deque>
#include <string>
#include <vector>

#include "harness/all_calls.h"

namespace orvane::bench {

// An allocator that costs next to nothing: blocks of a ring, handed out in turn and never freed. A buffer stays valid
// for the next hundreds of requests, longer than anybody here keeps one.
extern "C" LPVOID WINAPI benchAllocate(SIZE_T size);
extern "C" LPVOID WINAPI benchReallocate(LPVOID block, SIZE_T size);
extern "C" void WINAPI benchFree(LPVOID block);

// Scene loads the minidriver with one token in memory and one context, the log switched off. The monitor thread is held
// at its first poll. One scene at a time.
class Scene {
 public:
  // A token test::kSerial with so many keys of 2048 bits, each with a certificate.
  explicit Scene(unsigned keys = 2);
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // Defines the token anew: PINs, counters and keys as at the beginning.
  void defineToken(const std::string& serial = test::kSerial);
  // Takes the token away, so that the next one is the first of the list.
  static void removeToken(const std::string& serial);

  // A record as a caller makes it, without a context.
  CARD_DATA newRecord();
  DWORD acquire(CARD_DATA& record);
  // Gives the record a context if it has none, and the state that a call expects; everything else as at the beginning.
  void reset(CARD_DATA& record, test::Before before);

  // "logLevel" 3, or absent.
  void setDebugLog(bool isOn);
  // The whole log file as it stands, and nothing of it next time. Lines end in '\n'.
  std::vector<std::string> takeLog();
  // Where the log file of now is.
  std::string logFile() const;

 private:
  unsigned keys_;
  std::string folder_;
};

// Sizes of the requests to benchAllocate since the last call.
std::vector<std::size_t> takeRequests();

// The functions of the token library that were called since the last call, by this thread, in order.
std::vector<std::string> takeTokenCalls();

}  // namespace orvane::bench

#endif  // ORVANE_BENCH_SCENE_H
