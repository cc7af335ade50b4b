// A copy has a worker thread, which moves the bytes, and a source on the run loop, whose ready time
// is when the next report is due. The worker only sets that time to now when it has something to
// say, so that all callbacks come from the run loop. A move within a volume has no worker.

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFString.h>
#include <CoreServices/FileOperations.h>
#include <signal.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "platform/linux/CFRunLoopObject.h"
#include "platform/linux/FileCopy.h"
#include "platform/linux/Handles.h"

CFStringRef const kFSOperationTotalBytesKey = CFSTR("kFSOperationTotalBytesKey");
CFStringRef const kFSOperationBytesCompleteKey = CFSTR("kFSOperationBytesCompleteKey");

namespace {

gboolean DispatchOperation(GSource* source, GSourceFunc, gpointer);

GSourceFuncs g_operationFuncs = {nullptr, nullptr, DispatchOperation, nullptr, nullptr, nullptr};

struct OperationSource {
  GSource base;
  __FSFileOperation* operation;  // lent: the operation owns the source
};

// Threads that are made while this lives take no signals but those of their own faults: handlers of
// the application run on its own threads, and SIGXFSZ is nobody's end.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t signals;
    sigfillset(&signals);
    for (int const fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP}) {
      sigdelset(&signals, fault);
    }
    pthread_sigmask(SIG_SETMASK, &signals, &m_before);
  }
  SignalsBlocked(SignalsBlocked const&) = delete;
  SignalsBlocked& operator=(SignalsBlocked const&) = delete;
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

 private:
  sigset_t m_before;
};

// The status that the callback gets; null when memory runs out.
CFDictionaryRef CreateStatus(UInt64 total, UInt64 completed) {
  CFNumberRef const numbers[] = {
      CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &total),
      CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &completed)};
  void const* keys[] = {kFSOperationTotalBytesKey, kFSOperationBytesCompleteKey};
  void const* values[] = {numbers[0], numbers[1]};
  CFDictionaryRef status = nullptr;
  if (numbers[0] != nullptr && numbers[1] != nullptr) {
    status = CFDictionaryCreate(kCFAllocatorDefault, keys, values, 2,
                                &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  }
  for (CFNumberRef const number : numbers) {
    if (number != nullptr) CFRelease(number);
  }
  return status;
}

}  // namespace

struct __FSFileOperation final : CFObject, private CopyObserver {
 public:
  ~__FSFileOperation() override {
    Cancel();
    if (m_worker.joinable()) m_worker.join();
    if (m_isScheduled) UnscheduleFrom(m_runLoop);
    if (m_runLoop != nullptr) CFRelease(m_runLoop);
  }

  OSStatus ScheduleOn(CFRunLoopRef runLoop) {
    if (m_runLoop != nullptr) return paramErr;
    m_runLoop = runLoop;
    CFRetain(runLoop);
    m_isScheduled = true;
    m_keepsRunLoop = KeepRunLoop(runLoop);
    return noErr;
  }

  OSStatus UnscheduleFrom(CFRunLoopRef runLoop) {
    if (!m_isScheduled || m_runLoop != runLoop) return paramErr;
    m_isScheduled = false;
    LeaveRunLoop();
    if (m_keepsRunLoop) LetRunLoopGo(runLoop->context);
    return noErr;
  }

  OSStatus Start(FileTask task, FSPathFileOperationStatusProcPtr callback, CFTimeInterval interval,
                 void* info) {
    if (!m_isScheduled || m_isStarted) return paramErr;
    m_isStarted = true;
    m_task = std::move(task);
    m_callback = callback;
    m_info = info;
    m_interval = std::llround(std::clamp(interval, 0.001, 1e9) * 1e6);

    std::optional<UInt64> const sizeToRename = m_task.isMove ? SizeToRename(m_task) : std::nullopt;
    if (sizeToRename) {
      m_total = *sizeToRename;
      m_phase = Phase::Complete;
      JoinRunLoop(0);
      return noErr;
    }
    JoinRunLoop(g_get_monotonic_time() + m_interval);
    if (StartWorker()) return noErr;
    LeaveRunLoop();
    return tmfoErr;
  }

  void Cancel() {
    {
      std::lock_guard<std::mutex> const lock(m_mutex);
      m_cancelled = true;
    }
    m_answered.notify_one();
  }

  // On the thread of the run loop, when a report is due.
  void Dispatch() {
    Retain();
    Phase phase;
    UInt64 total;
    UInt64 completed;
    {
      std::lock_guard<std::mutex> const lock(m_mutex);
      // What the worker says from now on sets it to an earlier time.
      g_source_set_ready_time(m_source.Get(), g_get_monotonic_time() + m_interval);
      phase = m_phase;
      total = m_total;
      completed = m_completed;
    }
    // All bytes done are reported when the file is complete, and only then.
    if (phase == Phase::AtWork && completed < total) Report(total, completed);
    if (phase == Phase::Complete) ReportComplete(total);
    if (phase == Phase::Over) ReportEnd(m_result);
    Release();
  }

 private:
  enum class Phase {
    AtWork,
    Complete,  // the last report waits to be made, and its answer
    Approved,
    Over
  };

  // The time is set before the loop knows the source: later it would have to be woken.
  void JoinRunLoop(gint64 firstReport) {
    m_source = SourceHandle(g_source_new(&g_operationFuncs, sizeof(OperationSource)));
    reinterpret_cast<OperationSource*>(m_source.Get())->operation = this;
    g_source_set_name(m_source.Get(), "file operation");
    g_source_set_ready_time(m_source.Get(), firstReport);
    g_source_attach(m_source.Get(), m_runLoop->context);
  }

  bool IsOnRunLoop() const { return m_source && g_source_is_destroyed(m_source.Get()) == FALSE; }

  void LeaveRunLoop() {
    if (m_source) g_source_destroy(m_source.Get());
  }

  bool StartWorker() {
    m_phase = Phase::AtWork;
    try {
      SignalsBlocked const blocked;
      m_worker = std::thread([this] { Work(); });
      return true;
    } catch (std::exception const&) {
      return false;
    }
  }

  // The worker's whole life.
  void Work() {
    OSStatus result = memFullErr;
    try {
      result = CopyFile(m_task, this);
    } catch (std::bad_alloc const&) {
    }
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_result = result;
    m_phase = Phase::Over;
    g_source_set_ready_time(m_source.Get(), 0);
  }

  bool Continues(UInt64 total, UInt64 completed) override {
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_total = total;
    m_completed = completed;
    return !m_cancelled;
  }

  bool Approves(UInt64 total) override {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_total = total;
    m_phase = Phase::Complete;
    g_source_set_ready_time(m_source.Get(), 0);
    m_answered.wait(lock, [this] { return m_cancelled || m_phase == Phase::Approved; });
    return !m_cancelled;
  }

  void Call(FSFileOperationStage stage, OSStatus error, CFDictionaryRef status) {
    m_callback(this, m_task.source.c_str(), stage, error, status, m_info);
  }

  void Report(UInt64 total, UInt64 completed) {
    // A move that turned into a copy has told of all bytes already.
    m_reported = std::max(m_reported, completed);
    CFDictionaryRef const status = CreateStatus(total, m_reported);
    Call(kFSOperationStageRunning, noErr, status);
    if (status != nullptr) CFRelease(status);
  }

  void ReportEnd(OSStatus result) {
    LeaveRunLoop();
    Call(kFSOperationStageComplete, result, nullptr);
  }

  void ReportComplete(UInt64 total) {
    if (total > 0) Report(total, total);
    if (!IsOnRunLoop()) return;
    bool cancelled;
    {
      std::lock_guard<std::mutex> const lock(m_mutex);
      cancelled = m_cancelled;
      if (!cancelled && m_worker.joinable()) m_phase = Phase::Approved;
    }
    if (m_worker.joinable()) {
      m_answered.notify_one();
    } else {
      Rename(cancelled);
    }
  }

  void Rename(bool cancelled) {
    std::optional<OSStatus> const result = cancelled ? userCanceledErr : RenameFile(m_task);
    if (!result && StartWorker()) return;
    m_phase = Phase::Over;
    ReportEnd(result.value_or(tmfoErr));
  }

  // Of the run loop's thread.
  __CFRunLoop* m_runLoop = nullptr;  // retained, also after unscheduling: the worker may wake it
  bool m_isScheduled = false;
  bool m_keepsRunLoop = false;
  bool m_isStarted = false;
  FSPathFileOperationStatusProcPtr m_callback = nullptr;
  void* m_info = nullptr;
  gint64 m_interval = 0;  // in microseconds
  UInt64 m_reported = 0;
  std::thread m_worker;

  // Set before the worker starts.
  FileTask m_task;
  SourceHandle m_source;

  // Of both.
  std::mutex m_mutex;
  std::condition_variable m_answered;
  Phase m_phase = Phase::AtWork;
  bool m_cancelled = false;
  UInt64 m_total = 0;
  UInt64 m_completed = 0;
  OSStatus m_result = noErr;
};

namespace {

gboolean DispatchOperation(GSource* source, GSourceFunc, gpointer) {
  reinterpret_cast<OperationSource*>(source)->operation->Dispatch();
  return G_SOURCE_CONTINUE;
}

// The name as one component of a path.
OSStatus NameFrom(CFStringRef text, std::string* name) {
  constexpr CFIndex kLongest = 255;
  UInt8 bytes[kLongest];
  CFIndex size = 0;
  CFIndex const length = CFStringGetLength(text);
  CFIndex const converted = CFStringGetBytes(text, CFRangeMake(0, length), kCFStringEncodingUTF8, 0,
                                             false, bytes, kLongest, &size);
  if (converted != length || length == 0) return bdNamErr;
  name->assign(bytes, bytes + size);
  bool const isEntry = name->find_first_of(std::string("/\0", 2)) == std::string::npos &&
                       *name != "." && *name != "..";
  return isEntry ? noErr : bdNamErr;
}

OSStatus StartOperation(FSFileOperationRef operation, char const* sourcePath,
                        char const* destFolderPath, CFStringRef destName, OptionBits flags,
                        FSPathFileOperationStatusProcPtr callback, CFTimeInterval interval,
                        FSFileOperationClientContext const* context, bool isMove) {
  if (operation == nullptr || sourcePath == nullptr || destFolderPath == nullptr ||
      destName == nullptr || callback == nullptr || context == nullptr || std::isnan(interval)) {
    return paramErr;
  }
  try {
    FileTask task;
    OSStatus const status = NameFrom(destName, &task.name);
    if (status != noErr) return status;
    task.source = std::filesystem::absolute(sourcePath);
    task.folder = std::filesystem::absolute(destFolderPath);
    task.overwrite = (flags & kFSFileOperationOverwrite) != 0;
    task.isMove = isMove;
    return operation->Start(std::move(task), callback, interval, context->info);
  } catch (std::bad_alloc const&) {
    return memFullErr;
  } catch (std::filesystem::filesystem_error const&) {
    return fnfErr;  // of an empty path, or a relative one where the working directory is gone
  }
}

}  // namespace

FSFileOperationRef FSFileOperationCreate(CFAllocatorRef) {
  return MakeCFObject<__FSFileOperation>(0);
}

OSStatus FSFileOperationScheduleWithRunLoop(FSFileOperationRef operation, CFRunLoopRef runLoop,
                                            CFRunLoopMode mode) {
  if (operation == nullptr || runLoop == nullptr || mode != kCFRunLoopDefaultMode) return paramErr;
  return operation->ScheduleOn(runLoop);
}

OSStatus FSFileOperationUnscheduleFromRunLoop(FSFileOperationRef operation, CFRunLoopRef runLoop,
                                              CFRunLoopMode mode) {
  if (operation == nullptr || runLoop == nullptr || mode != kCFRunLoopDefaultMode) return paramErr;
  return operation->UnscheduleFrom(runLoop);
}

OSStatus FSPathCopyObjectAsync(FSFileOperationRef operation, char const* sourcePath,
                               char const* destFolderPath, CFStringRef destName, OptionBits flags,
                               FSPathFileOperationStatusProcPtr callback, CFTimeInterval interval,
                               FSFileOperationClientContext* context) {
  return StartOperation(operation, sourcePath, destFolderPath, destName, flags, callback, interval,
                        context, false);
}

OSStatus FSPathMoveObjectAsync(FSFileOperationRef operation, char const* sourcePath,
                               char const* destFolderPath, CFStringRef destName, OptionBits flags,
                               FSPathFileOperationStatusProcPtr callback, CFTimeInterval interval,
                               FSFileOperationClientContext* context) {
  return StartOperation(operation, sourcePath, destFolderPath, destName, flags, callback, interval,
                        context, true);
}

OSStatus FSFileOperationCancel(FSFileOperationRef operation) {
  if (operation == nullptr) return paramErr;
  operation->Cancel();
  return noErr;
}
