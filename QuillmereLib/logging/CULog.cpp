#include "QuillmereLib/logging/CULog.h"

#include <CoreServices/CoreServices.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "QuillmereLib/logging/LogState.h"
#include "QuillmereLib/streams/CUFileStream.h"
#include "QuillmereLib/values/CUDateTime.h"

// The files of the ring are the business of CULogFiles.cpp.

namespace {

struct FreeBlock {
  void operator()(char* block) const { std::free(block); }
};

// Writes a line by one append of the system, where a stream of its own accord makes the file longer
// first and fills in the line then: another process that logs to the file does the same, and either
// would write over the other.
class LineStream : public CUFileStream {
 public:
  explicit LineStream(CUSharedPtr<CUStringMac> path, bool noThrowOnOpenFailure = false)
      : CUFileStream(path, CUStream_FileMode_Append, CUStream_FileAccess_ReadWrite,
                     noThrowOnOpenFailure) {}

  // Whether all of the text is in the file. What a full disk took of it is cut off again, unless
  // another process has already gone on behind it.
  bool Append(char const* text) {
    ByteCount const size = std::strlen(text);
    ByteCount written = 0;
    OSErr const status = FSWriteFork(ForkRef(), fsFromLEOF, 0, size, text, &written);
    if (status == noErr && written == size) return true;
    SInt64 mark = 0;
    SInt64 end = 0;
    if (written > 0 && FSGetForkPosition(ForkRef(), &mark) == noErr &&
        FSGetForkSize(ForkRef(), &end) == noErr && mark == end) {
      FSSetForkSize(ForkRef(), fsFromStart, end - static_cast<SInt64>(written));
    }
    return false;
  }
};

}  // namespace

CULog::CULog() : m_logFileIndex(0), m_logLevel(3) {}

CULog::~CULog() = default;

void CULog::InitializeWithName(CUSharedPtr<CUStringMac> folder, CUSharedPtr<CUStringMac> fileName,
                               unsigned int level) {
  LogStateUse const state;
  if (!state) return;
  CUAutoLock const guard(state->gs_sharedCULogLocker.Get());
  if (folder == nullptr || fileName == nullptr || state->gs_sharedCULog != nullptr) return;
  state->gs_sharedCULog = new CULog;
  // Init may throw. The log then stays, and its lines are tried.
  if (CUFailed(state->gs_sharedCULog->Init(std::move(folder), std::move(fileName), level))) {
    state->gs_sharedCULog = nullptr;
  }
}

CUSharedPtr<CULog> CULog::GetInstance() {
  LogStateUse const state;
  if (!state) return nullptr;
  CUAutoLock const guard(state->gs_sharedCULogLocker.Get());
  return state->gs_sharedCULog;
}

void CULog::Terminate() {
  LogStateUse const state;
  if (!state) return;
  CUAutoLock const guard(state->gs_sharedCULogLocker.Get());
  state->gs_sharedCULog = nullptr;
}

void CULog::Write(unsigned int level, CUSharedPtr<CUStringMac> format, ...) {
  CUSharedPtr<CULog> const log = GetInstance();
  if (log == nullptr) return;
  va_list arguments;
  va_start(arguments, format);
  log->WriteLogWithFormat(level, std::move(format), arguments);
  va_end(arguments);
}

// A line that is dropped shall not cost the making of a string.
void CULog::Write(unsigned int level, char const* format, ...) {
  CUSharedPtr<CULog> const log = GetInstance();
  if (log == nullptr || format == nullptr || !log->Takes(level)) return;
  CUSharedPtr<CUStringMac> text;
  try {
    text = new CUStringMac(format, CUString_CharCode_UTF8);
  } catch (...) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  log->WriteLogWithFormat(level, std::move(text), arguments);
  va_end(arguments);
}

void CULog::WriteLog(unsigned int level, CUSharedPtr<CUStringMac> format, ...) {
  va_list arguments;
  va_start(arguments, format);
  WriteLogWithFormat(level, std::move(format), arguments);
  va_end(arguments);
}

bool CULog::Takes(unsigned int level) {
  CUAutoLock const guard(&m_lock);
  return level <= m_logLevel;
}

void CULog::WriteLogWithFormat(unsigned int level, CUSharedPtr<CUStringMac> format,
                               va_list arguments) {
  CUAutoLock const guard(&m_lock);
  if (level > m_logLevel || format == nullptr) return;
  try {
    WriteFileString(ComposeLine(level, std::move(format), arguments));
  } catch (...) {
  }
}

// Null where any of its texts is missing.
CUSharedPtr<CUStringMac> CULog::ComposeLine(unsigned int level, CUSharedPtr<CUStringMac> format,
                                            va_list arguments) {
  LogStateUse const state;
  if (!state) return nullptr;
  CUSharedPtr<CUDateTime> const now = CUDateTime::Create();
  CUSharedPtr<CUStringMac> const name = GetLogLevelString(level);
  CUSharedPtr<CUStringMac> const date = GetLogDateTimeString(now);
  CUSharedPtr<CUStringMac> const message =
      CUStringMac::CreateWithFormatV(std::move(format), arguments);
  if (name == nullptr || date == nullptr || message == nullptr) return nullptr;
  char const* const dateText = *date;
  char const* const nameText = *name;
  char const* const messageText = *message;
  if (dateText == nullptr || nameText == nullptr || messageText == nullptr) return nullptr;
  return CUStringMac::CreateWithFormat(state->g_pLogPrintLineFmt, dateText, nameText, messageText);
}

CUSharedPtr<CUStringMac> CULog::GetLogLevelString(unsigned int level) {
  LogStateUse const state;
  if (!state) return nullptr;
  CUSharedPtr<CUStringMac> const* const names[] = {&state->g_pLogError, &state->g_pLogWarning,
                                                   &state->g_pLogInfo};
  bool const isNamed = level >= 1 && level <= 3;
  return new CUStringMac(**(isNamed ? names[level - 1] : &state->g_pLogDebug));
}

CUSharedPtr<CUStringMac> CULog::GetLogDateTimeString(CUSharedPtr<CUDateTime> date) {
  LogStateUse const state;
  if (!state || date == nullptr) return nullptr;
  // All fields of one look at the zone.
  CFGregorianDate const fields = date->GregorianDate(true);
  return CUStringMac::CreateWithFormat(
      state->g_pLogDateTimeFmt, static_cast<int>(fields.year), static_cast<int>(fields.month),
      static_cast<int>(fields.day), static_cast<int>(fields.hour), static_cast<int>(fields.minute),
      static_cast<int>(fields.second));
}

bool CULog::WriteFileString(CUSharedPtr<CUStringMac> text) {
  unsigned int size = GetStringByteSize(text);
  if (size == 0) return false;
  try {
    std::unique_ptr<char, FreeBlock> const bytes(static_cast<char*>(std::malloc(size)));
    if (!bytes || CUFailed(text->GetString(bytes.get(), CUString_CharCode_UTF8, size))) {
      return false;
    }
    bool isWhole = false;
    if (AppendToPresentFile(bytes.get(), size, &isWhole)) return isWhole;
    CUSharedPtr<CUStringMac> const path = GetWriteableLogPath(size);
    return path != nullptr && LineStream(path).Append(bytes.get());
  } catch (...) {
    return false;
  }
}

// Most lines go to the file that the last one went to. Its length is known once it is open, which
// spares the two looks at it that GetWriteableLogPath takes. False where that one has to decide.
bool CULog::AppendToPresentFile(char const* text, unsigned int byteCount, bool* isWhole) {
  if (byteCount > kLogFileSizeLimit) return false;
  CUSharedPtr<CUStringMac> path =
      GetLogFilePath(m_logFolder, m_logFileName, static_cast<int>(m_logFileIndex));
  if (path == nullptr) return false;
  LineStream file(path, true);
  if (!file.IsOSFileHandleValid() || file.Length() + byteCount > kLogFileSizeLimit) return false;
  *isWhole = file.Append(text);
  return true;
}
