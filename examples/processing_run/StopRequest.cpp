#include "StopRequest.h"

#include <atomic>
#include <csignal>

namespace {

std::atomic<bool> stopRequested(false);
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may set it");

extern "C" void OnInterrupt(int) { stopRequested.store(true); }

}  // namespace

void NoteInterrupts() {
  struct sigaction action = {};
  action.sa_handler = OnInterrupt;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
}

bool StopRequested() { return stopRequested.load(); }
