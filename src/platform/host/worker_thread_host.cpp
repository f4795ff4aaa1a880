#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <system_error>
#include <thread>

#include "platform/host/host_control.h"
#include "platform/worker_thread.h"

namespace orvane {

struct WorkerThread::Held {
  std::mutex mutex;
  std::condition_variable changed;
  bool awake = false;
  std::thread thread;
};

namespace {

void note(const std::string& event) {
  host::HostMachine& machine = host::hostMachine();
  const std::lock_guard lock(machine.mutex);
  machine.threadEvents.push_back(event);
}

// Whether the pause is to end at once.
bool notePause(unsigned milliseconds) {
  host::HostMachine& machine = host::hostMachine();
  const std::lock_guard lock(machine.mutex);
  machine.pauses.push_back(milliseconds);
  return machine.pausesEnd;
}

}  // namespace

WorkerThread::WorkerThread() = default;
WorkerThread::~WorkerThread() = default;

void WorkerThread::start(void (*procedure)()) {
  {
    host::HostMachine& machine = host::hostMachine();
    const std::shared_lock lock(machine.mutex);
    if (machine.threadsFail) {
      throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "WorkerThread");
    }
  }
  note("start");
  auto held = std::make_unique<Held>();
  // The thread may look at held_ (through pause) as soon as it runs, so it is created after the assignment.
  held_ = std::move(held);
  try {
    held_->thread = std::thread(procedure);
  } catch (...) {
    held_.reset();
    throw;
  }
}

bool WorkerThread::holdsThread() const noexcept { return held_ != nullptr; }

bool WorkerThread::isCurrentThread() const noexcept {
  return held_ != nullptr && held_->thread.get_id() == std::this_thread::get_id();
}

void WorkerThread::pause(unsigned milliseconds) noexcept {
  note("pause " + std::to_string(milliseconds));
  if (notePause(milliseconds)) return;
  std::unique_lock lock(held_->mutex);
  held_->changed.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return held_->awake; });
}

void WorkerThread::wake() noexcept {
  if (held_ == nullptr) return;
  note("wake");
  const std::lock_guard lock(held_->mutex);
  held_->awake = true;
  held_->changed.notify_all();
}

void WorkerThread::join() noexcept {
  note("join");
  held_->thread.join();
  held_.reset();
}

}  // namespace orvane
