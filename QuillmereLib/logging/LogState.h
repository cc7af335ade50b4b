#pragma once

// What all code of the log shares: the running log, its lock and the texts of a line.

#include "QuillmereLib/core/CULock.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/strings/CUStringMac.h"

class CULog;

// None of the texts may be turned into bytes itself, since that changes a string: copies are.
struct LogState {
  LogState();

  CUSharedPtr<CULog> gs_sharedCULog;
  CUSharedPtr<CURecursiveLock> gs_sharedCULogLocker;
  CUSharedPtr<CUStringMac> g_pLogFileFmt;
  CUSharedPtr<CUStringMac> g_pLogPrintLineFmt;
  CUSharedPtr<CUStringMac> g_pLogDateTimeFmt;
  CUSharedPtr<CUStringMac> g_pLogError;
  CUSharedPtr<CUStringMac> g_pLogWarning;
  CUSharedPtr<CUStringMac> g_pLogInfo;
  CUSharedPtr<CUStringMac> g_pLogDebug;
};

// The state, for as long as this object lives, or none: it is made as the library is loaded and
// destroyed as it is unloaded or the process exits, but not from under a thread that is using it.
// Code that runs before or after finds none, and logs nothing.
class LogStateUse {
 public:
  LogStateUse() noexcept;
  LogStateUse(LogStateUse const&) = delete;
  LogStateUse& operator=(LogStateUse const&) = delete;
  ~LogStateUse();

  explicit operator bool() const noexcept { return m_state != nullptr; }
  LogState* operator->() const noexcept { return m_state; }

 private:
  LogState* m_state;
};
