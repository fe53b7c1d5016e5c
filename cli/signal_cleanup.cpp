#include "signal_cleanup.h"

#include <limits.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

namespace qpx {
namespace {

constexpr int kSignals[] = {SIGHUP, SIGINT, SIGPIPE, SIGTERM};

// Fixed storage, so that the handler reads paths without allocating or locking: a slot's path
// is written before `used` is set and only read while it is.
struct Slot {
  std::atomic<bool> used{false};
  char path[PATH_MAX];
};
Slot slots[16];
static_assert(std::atomic<bool>::is_always_lock_free, "the handler needs lock-free flags");

extern "C" void RemoveFilesAndDie(int signal) {
  for (Slot& slot : slots) {
    if (slot.used.load(std::memory_order_acquire)) unlink(slot.path);
  }
  // The handler was installed with SA_RESETHAND and SA_NODEFER: the signal now takes its default
  // action at once.
  raise(signal);
}

void InstallHandlers() {
  static bool installed = false;
  if (installed) return;
  installed = true;
  for (const int signal : kSignals) {
    struct sigaction current {};
    if (sigaction(signal, nullptr, &current) != 0 || current.sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = RemoveFilesAndDie;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND | SA_NODEFER;
    sigaction(signal, &action, nullptr);
  }
}

sigset_t HandledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : kSignals) sigaddset(&set, signal);
  return set;
}

}  // namespace

int RemoveOnSignal(const std::string& path) {
  if (path.size() >= PATH_MAX) return -1;
  InstallHandlers();
  for (int i = 0; i < int(std::size(slots)); ++i) {
    Slot& slot = slots[i];
    if (slot.used.load(std::memory_order_relaxed)) continue;
    std::memcpy(slot.path, path.c_str(), path.size() + 1);
    slot.used.store(true, std::memory_order_release);
    return i;
  }
  return -1;
}

void ForgetOnSignal(int handle) {
  if (handle >= 0) slots[handle].used.store(false, std::memory_order_release);
}

SignalsHeldBack::SignalsHeldBack() {
  const sigset_t set = HandledSignals();
  sigprocmask(SIG_BLOCK, &set, &previous_);
}

SignalsHeldBack::~SignalsHeldBack() {
  sigprocmask(SIG_SETMASK, &previous_, nullptr);
}

}  // namespace qpx
