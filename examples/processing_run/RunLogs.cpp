#include "RunLogs.h"

#include <cstdio>

#include "ErrorWords.h"
#include "Failures.h"
#include "VisibleText.h"

namespace {

constexpr char const* kStem = "processing_run";
constexpr char const* kSystemReport = "processing_run system.txt";

// What is expected of a disk: the target that a record sets beside the time really taken.
constexpr double kTargetBytesPerSecond = 100e6;

template <class Record>
void Begin(LoggerType type, FileTask& task, Record const& record) {
  CUPerformanceLogger* const logger = CUPerformanceLogger::GetInstance();
  if (logger != nullptr) logger->StartLog(type, Utf8Of(*task.path), record);
}

void End(LoggerType type, FileTask& task) {
  CUPerformanceLogger* const logger = CUPerformanceLogger::GetInstance();
  if (logger != nullptr) logger->EndLog(type, Utf8Of(*task.path));
}

}  // namespace

RunLogs::RunLogs() {
  try {
    CUPerformanceLogger::Initialize("1.0.0", true);
    std::string const folder = CUPerformanceLogger::GetInstance()->LogDirectory();
    CULog::InitializeWithName(StringOf(folder), StringOf(kStem), kLogDebug);
    m_folder = folder;
  } catch (unsigned int errorCode) {
    WriteProblem("nothing is logged, as the folder for it cannot be made: " +
                 ErrorWords(errorCode));
  }
}

RunLogs::~RunLogs() {
  CUPerformanceLogger* const logger = CUPerformanceLogger::GetInstance();
  if (logger != nullptr) {
    logger->Flush(LoggerType_ImageStabilization);
    logger->Flush(LoggerType_Export);
  }
  CULog::Terminate();
}

void RunLogs::StartSystemReport() {
  CUSharedPtr<CULog> const log = CULog::GetInstance();
  if (log == nullptr) return;
  log->WriteSystemInfo(StringOf(kSystemReport));
  m_hasSystemReport = true;
}

void RunLogs::PrintPlaces() const {
  if (m_folder.empty()) return;
  std::string const folder = VisibleText(m_folder) + "/";
  std::printf("Log: %s%s0.log to 9.log\n", folder.c_str(), kStem);
  std::printf("Records: %sQMR_ImageStabilization.csv (reading), QMR_Export.csv (copying)\n",
              folder.c_str());
  if (m_hasSystemReport) {
    std::printf("System report: %s%s, in a moment\n", folder.c_str(), kSystemReport);
  }
}

void BeginReading(FileTask& task) {
  ImageStabLogData record;
  record.detectionMode = "checksum";
  record.correctionStrength = "none";
  Begin(LoggerType_ImageStabilization, task, record);
}

void EndReading(FileTask& task) { End(LoggerType_ImageStabilization, task); }

void BeginCopying(FileTask& task) {
  ExportLogData record;
  record.targetDuration = static_cast<double>(task.finding->Size()) / kTargetBytesPerSecond;
  record.fileFormat = task.finding->Type();
  record.vrFormat = "none";
  record.useDLUS = "no";
  record.processor = std::to_string(CUEnvironment::ProcessorCount()) + " processors";
  Begin(LoggerType_Export, task, record);
}

void EndCopying(FileTask& task) { End(LoggerType_Export, task); }
