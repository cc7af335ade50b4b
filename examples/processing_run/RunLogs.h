#pragma once

// The two logs of a run: lines for whoever looks into a problem, and a record of each file that was
// read or copied, with the time that it took.

#include <QuillmereLib/QuillmereLib.h>

#include "FileTask.h"

// The levels of CULog.
enum LogLevel : unsigned int { kLogError = 1, kLogWarning = 2, kLogInfo = 3, kLogDebug = 4 };

class RunLogs {
 public:
  // Starts both in the user's data folder. Where that cannot be done, it is told on standard error
  // and nothing is logged.
  RunLogs();

  // Flushes the records and ends the lines.
  ~RunLogs();

  RunLogs(RunLogs const&) = delete;
  RunLogs& operator=(RunLogs const&) = delete;

  // Starts a report on the machine beside the logs.
  void StartSystemReport();

  // Prints where everything is.
  void PrintPlaces() const;

 private:
  std::string m_folder;  // empty where nothing is logged
  bool m_hasSystemReport = false;
};

// Put around the reading and the copying of a file. A file that fails is begun and never ended, and
// leaves no record, for a record tells the outcome that was foreseen when it was begun. Any thread
// may call these.
void BeginReading(FileTask& task);
void EndReading(FileTask& task);
void BeginCopying(FileTask& task);
void EndCopying(FileTask& task);
