// What is around the callers of a round: tokens, library, machine, log and monitor; and the trouble with them.
#ifndef ORVANE_TESTS_TOGETHER_SURROUNDINGS_H
#define ORVANE_TESTS_TOGETHER_SURROUNDINGS_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "cache/device_monitor.h"
#include "together/model.h"
#include "together/tally.h"

namespace orvane::test {

// Surroundings makes everything as it is at the beginning of a round, and brings about its trouble. One thread at a
// time.
class Surroundings {
 public:
  // The log goes into a folder of its own below `folder`, which exists. `mayKeepHandle`: see Plan.
  Surroundings(OwnMemory& memory, Model& model, Findings& findings, const std::filesystem::path& folder,
               bool mayKeepHandle);
  ~Surroundings();
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;

  void bring(const Trouble& trouble);
  // As the monitor does once a second, with what this monitor knows.
  void poll(const std::optional<MemoryFault>& fault);
  bool hasSeen(const char* serial) const { return known_.present.contains(serial); }

  // All trouble ends: no answers are prepared, the machine is well, all tokens are connected as they were at first.
  void makeWell();
  // What our own polls know, and what is noted of the monitor's thread, is forgotten.
  void forgetMonitor();
  // All tokens go, and the monitor sees it.
  void takeTokensAway();
  // Every line of the log is whole and has no PIN; the files are gone afterwards.
  void checkLog();

  const Tally& tally() const { return tally_; }

 private:
  void changeToken(const Trouble& trouble);
  void prepareAnswer(const Trouble& trouble);
  void prepareException(const Trouble& trouble);
  void changeReader(const Trouble& trouble);
  void changeLogLevel(const Trouble& trouble);
  void changeLogPlace(const Trouble& trouble);
  void changeKeys(const Trouble& trouble);
  // A name in the folder for what is moved out of the way.
  std::filesystem::path aside();

  OwnMemory& memory_;
  Model& model_;
  Findings& findings_;
  const std::filesystem::path folder_;
  const bool mayKeepHandle_;
  unsigned moved_ = 0;
  std::array<bool, kRoundTokens.size()> isConnected_{};
  DeviceMonitor::KnownDevices known_;
  Tally tally_;
  CallNotes notes_;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_TOGETHER_SURROUNDINGS_H
