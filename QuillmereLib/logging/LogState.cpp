#include "QuillmereLib/logging/LogState.h"

#include <atomic>
#include <new>

#include "QuillmereLib/logging/CULog.h"

namespace {

CUSharedPtr<CUStringMac> Text(char const* text) {
  return new CUStringMac(text, CUString_CharCode_UTF8);
}

// All three are initialised before any code runs, and destroyed by none.
union Storage {
  constexpr Storage() : nothing(0) {}
  ~Storage() {}

  char nothing;
  LogState state;
} g_storage;
std::atomic<bool> g_isThere{false};
std::atomic<unsigned int> g_users{0};

// A user is counted first and looks at the flag then; the end lowers the flag first and looks at
// the count then. So one of them always sees the other: either the user keeps off, or the state is
// left to it, and to the system once the process has gone. Nobody waits.
struct StateLife {
  StateLife() {
    new (&g_storage.state) LogState;
    g_isThere = true;
  }
  ~StateLife() {
    g_isThere = false;
    if (g_users == 0) g_storage.state.~LogState();
  }
} g_stateLife;

}  // namespace

CUSharedPtr<CUStringMac> g_pLogNULL = Text("(NULL)");

LogState::LogState()
    : gs_sharedCULogLocker(new CURecursiveLock),
      g_pLogFileFmt(Text("%s%d.log")),
      g_pLogPrintLineFmt(Text("[%s]\t[%s]\t%s\r\n")),
      g_pLogDateTimeFmt(Text("%04d/%02d/%02d %02d:%02d:%02d")),
      g_pLogError(Text("ERROR")),
      g_pLogWarning(Text("WARNING")),
      g_pLogInfo(Text("INFO")),
      g_pLogDebug(Text("DEBUG")) {}

LogStateUse::LogStateUse() noexcept {
  ++g_users;
  m_state = g_isThere ? &g_storage.state : nullptr;
}

LogStateUse::~LogStateUse() { --g_users; }
