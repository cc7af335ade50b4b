#pragma once

// CULog, the diagnostic log of the process.
//   CULog::InitializeWithName(folder, stem, 3);  // ERROR, WARNING and INFO
//   CULog::Write(2, "%s took %d ms", name, time);
//   CULog::Terminate();

#include <cstdarg>
#include <cstdint>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CULock.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUResult.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/strings/CUStringMac.h"

class CUDateTime;

// The text "(NULL)", for callers who log what may be missing.
extern QUILLMERE_API CUSharedPtr<CUStringMac> g_pLogNULL;

// The dates of a file.
enum _Log_DateTime_Type : unsigned int {
  _Log_DateTime_Created = 0,
  _Log_DateTime_Modified = 1  // of its contents
};

// The files of a log are numbered from 0.
constexpr int kLogFileCount = 10;

// Bytes that a file holds at most, unless a single line is longer.
constexpr unsigned long long kLogFileSizeLimit = 1000000;

// Writes lines of "[2026/11/14 23:41:07]<tab>[ERROR]<tab>message<CR><LF>", UTF-8 without a mark and
// in local time, to a ring of ten files, `<stem>0.log` to `<stem>9.log`. Levels are numbers: 1
// "ERROR", 2 "WARNING", 3 "INFO", 4 and above "DEBUG"; those above the level of the start are
// dropped. Level 0 reads "DEBUG" too and is always written: this pairing is deliberate.
//
// A line opens, appends to and closes its file, so that whatever Write has returned from outlives a
// crash of the process. The message is not altered; its line breaks stay. A line that cannot be
// written is lost without a sign, and the next one tries afresh.
//
// Any thread may call everything here, also while the library is loaded or the process exits, when
// nothing is logged. Lines of one process never mix. Only InitializeWithName and Init throw
// error codes, and the forms that write throw nothing at all.
class QUILLMERE_API CULog : public CUObject {
 public:
  // For InitializeWithName, which makes the one log of a process.
  CULog();
  ~CULog() override;

  // Starts the log, of levels up to `level`, and makes the folder if it is missing. Ignored with a
  // null argument and while a log runs: its first settings stay. Where the folder cannot be made
  // the error code of CUDirectory::CreateDirectory is thrown; the log then counts as running, and
  // each line tries to be written, until Terminate.
  static void InitializeWithName(CUSharedPtr<CUStringMac> folder, CUSharedPtr<CUStringMac> fileName,
                                 unsigned int level);

  // The running log, or null.
  static CUSharedPtr<CULog> GetInstance();

  // Ends the log. A line in flight on another thread is still written. It may be started again.
  static void Terminate();

  // Formats as printf does and writes a line. Do nothing without a running log or a format, or when
  // the format or its outcome is not valid UTF-8. A `%s` takes UTF-8 text.
  static void Write(unsigned int level, CUSharedPtr<CUStringMac> format, ...);
  static void Write(unsigned int level, char const* format, ...);

  // The path of file number `index`; null for a null argument or string.
  static CUSharedPtr<CUStringMac> GetLogFilePath(CUSharedPtr<CUStringMac> folder,
                                                 CUSharedPtr<CUStringMac> fileName, int index);

  // The date of a file in local time, to the whole second; null where it has none.
  static CUSharedPtr<CUDateTime> GetLogFileTime(CUSharedPtr<CUStringMac> path,
                                                _Log_DateTime_Type type);

  // "2026/11/14 23:41:07" in local time; null for null.
  static CUSharedPtr<CUStringMac> GetLogDateTimeString(CUSharedPtr<CUDateTime> date);

  // The bytes that count for a text: three for each UTF-16 unit and for the end, more than it takes
  // on the disk. By this figure a file rotates before it is really full. 0 for null.
  static unsigned int GetStringByteSize(CUSharedPtr<CUStringMac> text);

  // Bytes; 0 on any failure.
  static unsigned long long GetLogFileSize(CUSharedPtr<CUStringMac> path);

  // Deletes the file if it is there; a failure is swallowed.
  static void DeleteLogFile(CUSharedPtr<CUStringMac> path);

  // Stores the settings, makes the folder and chooses the file to go on with: the one before the
  // first number that is missing, or where none is, the one modified last (the lowest of several).
  // Fails for a null argument, throws what CUDirectory::CreateDirectory throws.
  CUResult Init(CUSharedPtr<CUStringMac> folder, CUSharedPtr<CUStringMac> fileName,
                unsigned int level);

  // What Write does, on this log.
  void WriteLog(unsigned int level, CUSharedPtr<CUStringMac> format, ...);
  void WriteLogWithFormat(unsigned int level, CUSharedPtr<CUStringMac> format, va_list arguments);

  // The name of a level, as a string of the caller's own.
  CUSharedPtr<CUStringMac> GetLogLevelString(unsigned int level);

  // Appends the text to the file that has room for it; whether the whole of it arrived. What a
  // failure left of it is cut off again. This and the next rely on the caller for the order of
  // threads.
  bool WriteFileString(CUSharedPtr<CUStringMac> text);

  // The path of the file to write to. Where `byteCount` more bytes would take the present file
  // beyond the limit, this is the next of the ring, emptied. Null before a start.
  CUSharedPtr<CUStringMac> GetWriteableLogPath(unsigned int byteCount);

  // Starts a report on the machine, written to this name in the log's folder; returns at once, and
  // nothing tells when it is done. See z_WriteSystemInfo.
  void WriteSystemInfo(CUSharedPtr<CUStringMac> fileName);

 private:
  bool Takes(unsigned int level);
  unsigned int ChooseFile();
  bool AppendToPresentFile(char const* text, unsigned int byteCount, bool* isWhole);
  CUSharedPtr<CUStringMac> ComposeLine(unsigned int level, CUSharedPtr<CUStringMac> format,
                                       va_list arguments);

  CURecursiveLock m_lock;
  std::uint32_t m_logFileIndex;
  CUSharedPtr<CUStringMac> m_logFolder;
  CUSharedPtr<CUStringMac> m_logFileName;
  std::uint32_t m_logLevel;
};

// Starts the system's report tool in the background, with `path` as its output. Nothing is started
// for null and for a path that does not fit a command of 2047 bytes.
// The path goes to a shell between double quotes and is not escaped otherwise: a quote, a dollar
// sign, a backquote or a backslash in it is the shell's to read, and may run any command. So the
// log's folder, and the name, must never come from someone who is not trusted.
QUILLMERE_API void z_WriteSystemInfo(CUSharedPtr<CUStringMac> path);
