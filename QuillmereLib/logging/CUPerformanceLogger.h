#pragma once

// CUPerformanceLogger, which records how long each processing run of the application took, one row
// per run, in a CSV file per kind of run:
//   CUPerformanceLogger::Initialize("1.2.3", true);        // once, as the application starts
//   CUPerformanceLogger* const logger = CUPerformanceLogger::GetInstance();
//   logger->StartLog(LoggerType_Export, "/films/reel.mov", exportLogData);
//   ...
//   logger->EndLog(LoggerType_Export, "/films/reel.mov");  // the row is kept in memory
//   logger->Flush(LoggerType_Export);                      // the kept rows go to the file
//
// Nothing here is a CUObject, and nothing is shared with the diagnostic log.

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "QuillmereLib/core/CUExport.h"

// The kinds of run. Any other value is a kind without a header, whose file is named ".csv".
enum LoggerType : int {
  LoggerType_ImageStabilization = 0,  // QMR_ImageStabilization.csv, of ImageStabLogData
  LoggerType_Export = 1               // QMR_Export.csv, of ExportLogData
};

// How a run came out. Any other value gives an empty cell.
enum LogStatus : int { LogStatus_Success = 0, LogStatus_Error = 1, LogStatus_Cancel = 2 };

// What the application says about a run. All texts are UTF-8 and go into the row as they are.
class QUILLMERE_API LogDataBase {
 public:
  virtual ~LogDataBase();

  // The row, a text per column of its kind: the status, the three times, the target duration, the
  // path, the version, then the record's own fields in order.
  virtual std::vector<std::string> toRowData(std::string const& startDateTime,
                                             std::string const& endDateTime,
                                             std::string const& processTime,
                                             std::string const& filePath,
                                             std::string const& version) const = 0;

  LogStatus status = LogStatus_Success;
  double targetDuration = 0;  // seconds
};

class QUILLMERE_API ImageStabLogData : public LogDataBase {
 public:
  ~ImageStabLogData() override;
  std::vector<std::string> toRowData(std::string const& startDateTime,
                                     std::string const& endDateTime, std::string const& processTime,
                                     std::string const& filePath,
                                     std::string const& version) const override;

  std::string detectionMode;
  std::string correctionStrength;
};

class QUILLMERE_API ExportLogData : public LogDataBase {
 public:
  ~ExportLogData() override;
  std::vector<std::string> toRowData(std::string const& startDateTime,
                                     std::string const& endDateTime, std::string const& processTime,
                                     std::string const& filePath,
                                     std::string const& version) const override;

  std::string fileFormat;
  std::string vrFormat;
  std::string useDLUS;
  std::string processor;
};

// A run started and not ended.
struct PendingLogInfo {
  std::chrono::system_clock::time_point startTime;
  std::unique_ptr<LogDataBase> logData;  // the logger's own copy
};

// Keeps rows until they are flushed; there is no limit on their number. Any thread may start, end
// and flush runs. Only memory running out is ever thrown, unless told otherwise; what goes wrong
// with a file is not reported, and costs the rows of that flush.
//
// The files lie in "Tavik_Inc_IC/Quillmere" under the user's application support folder and are
// appended to by every process that logs. Each is UTF-8 with a byte-order mark and an unquoted
// header; lines end with carriage return and line feed, and every cell is quoted.
class QUILLMERE_API CUPerformanceLogger {
 public:
  // Makes the one logger of the process; a later call changes nothing. Throws what the constructor
  // throws, and may then be called again.
  static void Initialize(std::string const& version, bool enabled);

  // The logger, which the caller does not own; null before `Initialize`, which must have returned
  // before another thread asks. At the end of the process its kept rows are written.
  static CUPerformanceLogger* GetInstance();

  // A logger that is not enabled does nothing. One that is makes its folder, and throws the error
  // code of CUDirectory::CreateDirectory where it cannot be made.
  CUPerformanceLogger(std::string const& version, bool enabled);
  CUPerformanceLogger(CUPerformanceLogger const&) = delete;
  CUPerformanceLogger& operator=(CUPerformanceLogger const&) = delete;

  // Writes all kept rows. Runs still pending give none.
  ~CUPerformanceLogger();

  // Starts a run of a path: copies `data`, an ImageStabLogData or ExportLogData, and takes the
  // time. While that run is pending another start of the same kind and path is ignored. The row
  // will show the status that `data` holds now: a run that may fail is started with what is to be
  // told of it.
  template <class T>
  void StartLog(LoggerType type, std::string const& filePath, T const& data);

  // Ends the run of that kind and path, and keeps its row. Ignored where none is pending.
  void EndLog(LoggerType type, std::string const& filePath);

  // Appends the kept rows to the file of their kind, without any lock: other threads go on with
  // their runs meanwhile. Makes no file where there are no rows. Rows of two flushes at once,
  // also by two processes, may alternate but stay whole.
  void Flush(LoggerType type);

  // By what a pending run is known.
  std::string GenerateKey(LoggerType type, std::string const& filePath);

  // The name of the file without its extension; empty for other values.
  std::string LoggerTypeToFileName(LoggerType type);

  // Gives a file that holds nothing, or the mark alone, the mark and the header. A file of one or
  // two bytes gets the header behind them; any other is left alone.
  void WriteHeaderIfNeeded(LoggerType type, std::string const& path);

  // Gives a missing or empty file the byte-order mark.
  void WriteBomIfNeeded(std::string const& path);

  // The full path of the folder of the files, UTF-8; empty when not enabled.
  std::string const& LogDirectory() const { return m_logDirectory; }

  // Looks up the folder of the files. Leaves it empty where the user has no such folder.
  void CreateLogDirectory();

  static std::unique_ptr<CUPerformanceLogger> LoggerInstance;  // null at load
  static std::mutex LoggerInitMutex;                           // held while that is made

 private:
  bool m_enabled;
  std::string m_version;
  std::string m_logDirectory;
  std::map<LoggerType, std::string> m_headers;
  std::map<std::string, PendingLogInfo> m_pendingLogs;  // by GenerateKey
  std::map<LoggerType, std::vector<std::vector<std::string>>> m_rows;
  std::mutex m_mutex;  // of m_pendingLogs and m_rows
};

template <class T>
void CUPerformanceLogger::StartLog(LoggerType type, std::string const& filePath, T const& data) {
  if (!m_enabled) return;
  std::string key = GenerateKey(type, filePath);
  std::lock_guard<std::mutex> const lock(m_mutex);
  auto const place = m_pendingLogs.lower_bound(key);
  if (place != m_pendingLogs.end() && place->first == key) return;
  PendingLogInfo info;
  info.logData = std::make_unique<T>(data);
  info.startTime = std::chrono::system_clock::now();
  m_pendingLogs.emplace_hint(place, std::move(key), std::move(info));
}
