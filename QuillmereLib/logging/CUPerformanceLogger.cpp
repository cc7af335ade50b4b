#include "QuillmereLib/logging/CUPerformanceLogger.h"

#include <Workspace.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <ios>
#include <locale>
#include <optional>
#include <sstream>
#include <system_error>

#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/strings/CUStringMac.h"

namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;
using Row = std::vector<std::string>;

char const kByteOrderMark[] = "\xEF\xBB\xBF";
char const kLineEnd[] = "\r\n";

// All texts are of one width.
std::string StatusText(LogStatus status) {
  switch (status) {
    case LogStatus_Success:
      return "SUCCESS";
    case LogStatus_Error:
      return "ERROR  ";
    case LogStatus_Cancel:
      return "CANCEL ";
  }
  return "";
}

// Local time, as in 2026/11/14 23:41:07.045.
std::string FormatTime(system_clock::time_point const& time) {
  std::time_t const second = system_clock::to_time_t(time);
  long long const rest =
      duration_cast<milliseconds>(time - system_clock::from_time_t(second)).count();
  std::tm local = {};
  localtime_r(&second, &local);
  char text[64];
  std::size_t const length = std::strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", &local);
  std::snprintf(text + length, sizeof text - length, ".%03lld", rest);
  return text;
}

// Three decimals behind a point, whatever locale the application has set.
std::string FormatTimeSecond(double time) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text.setf(std::ios::fixed, std::ios::floatfield);
  text.precision(3);
  text << time;
  return text.str();
}

// As in 00:02:00.333; hours take more digits where needed and are not wrapped to days.
std::string FormatProcessTime(microseconds time) {
  long long rest = time.count() / 1000;
  long long const hours = rest / 3600000;
  rest -= hours * 3600000;
  long long const minutes = rest / 60000;
  rest -= minutes * 60000;
  char text[96];
  std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld.%03lld", hours, minutes, rest / 1000,
                rest % 1000);
  return text;
}

// An initializer list would copy each cell once more.
template <class... Cells>
Row RowOf(Cells&&... cells) {
  Row row;
  row.reserve(sizeof...(cells));
  (row.emplace_back(std::forward<Cells>(cells)), ...);
  return row;
}

// A spreadsheet takes what begins so for text, and shows it as it is.
std::string AsText(std::string const& cell) { return "'" + cell; }

// The room that a line needs at most, if every character of it were a quote.
std::size_t MostBytes(Row const& row) {
  std::size_t bytes = sizeof kLineEnd;
  for (std::string const& cell : row) bytes += 2 * cell.size() + 3;
  return bytes;
}

char* PutQuoted(std::string const& cell, char* place) {
  *place++ = '"';
  for (char const unit : cell) {
    *place++ = unit;
    if (unit == '"') *place++ = '"';
  }
  *place++ = '"';
  return place;
}

// Gives the end of the line.
char* PutLine(Row const& row, char* place) {
  for (std::string const& cell : row) {
    if (&cell != &row.front()) *place++ = ',';
    place = PutQuoted(cell, place);
  }
  return std::copy_n(kLineEnd, sizeof kLineEnd - 1, place);
}

// Hands whole lines to the file: each portion is one appending write, which no other one splits. A
// row is let go while it is still at hand in the processor's cache.
void WriteRows(std::vector<Row>& rows, std::ofstream& file) {
  std::size_t const guess = rows.size() * MostBytes(rows.front());
  std::vector<char> portion(std::min(guess, std::size_t{1} << 21));
  char* end = portion.data();
  auto const write = [&] {
    file.write(portion.data(), end - portion.data()).flush();
    end = portion.data();
  };
  for (Row& row : rows) {
    std::size_t const most = MostBytes(row);
    if (most > portion.size() - static_cast<std::size_t>(end - portion.data())) write();
    if (most > portion.size()) {
      portion.resize(most);
      end = portion.data();
    }
    end = PutLine(row, end);
    Row().swap(row);
  }
  write();
}

// The first bytes of a file, at most four, and none of one that is missing. Nothing where they
// cannot be read: such a file must not be taken for a new one, whose start may be written.
std::optional<std::string> StartOf(std::string const& path) {
  std::ifstream existing(path, std::ios::binary);
  std::error_code error;
  if (!existing && (std::filesystem::exists(path, error) || error)) {
    // Another flush may have made it since.
    existing.open(path, std::ios::binary);
    if (!existing) return std::nullopt;
  }
  char start[4];
  existing.read(start, sizeof start);
  if (existing.bad()) return std::nullopt;
  return std::string(start, static_cast<std::size_t>(existing.gcount()));
}

// Puts `text` at `offset` of an existing file. The start of a file is written so, and not by
// truncating or appending: of two flushes that both find the file new, the later one then writes
// the same bytes to the same place, and the earlier one's rows stay.
void WriteAt(std::string const& path, std::streamoff offset, std::string const& text) {
  std::ofstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(offset).write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace

LogDataBase::~LogDataBase() = default;
ImageStabLogData::~ImageStabLogData() = default;
ExportLogData::~ExportLogData() = default;

std::vector<std::string> ImageStabLogData::toRowData(std::string const& startDateTime,
                                                     std::string const& endDateTime,
                                                     std::string const& processTime,
                                                     std::string const& filePath,
                                                     std::string const& version) const {
  return RowOf(StatusText(status), startDateTime, endDateTime, processTime,
               FormatTimeSecond(targetDuration), filePath, version, detectionMode,
               correctionStrength);
}

std::vector<std::string> ExportLogData::toRowData(std::string const& startDateTime,
                                                  std::string const& endDateTime,
                                                  std::string const& processTime,
                                                  std::string const& filePath,
                                                  std::string const& version) const {
  return RowOf(StatusText(status), startDateTime, endDateTime, processTime,
               FormatTimeSecond(targetDuration), filePath, version, fileFormat, vrFormat, useDLUS,
               processor);
}

std::unique_ptr<CUPerformanceLogger> CUPerformanceLogger::LoggerInstance;
std::mutex CUPerformanceLogger::LoggerInitMutex;

void CUPerformanceLogger::Initialize(std::string const& version, bool enabled) {
  std::lock_guard<std::mutex> const lock(LoggerInitMutex);
  if (LoggerInstance) return;
  LoggerInstance = std::make_unique<CUPerformanceLogger>(version, enabled);
}

CUPerformanceLogger* CUPerformanceLogger::GetInstance() { return LoggerInstance.get(); }

CUPerformanceLogger::CUPerformanceLogger(std::string const& version, bool enabled)
    : m_enabled(enabled), m_version(version) {
  std::string const common =
      "Status,Start DateTime,End DateTime,Process Time,Target Duration,File Path,Version,";
  m_headers[LoggerType_ImageStabilization] = common + "Detection Mode,Correction Strength";
  m_headers[LoggerType_Export] = common + "File Format,VR Format,Use DLUS,Processor";
  if (!m_enabled) return;
  CreateLogDirectory();
  CUDirectory::CreateDirectory(
      CUSharedPtr<CUStringMac>(new CUStringMac(m_logDirectory.c_str(), CUString_CharCode_UTF8)));
}

CUPerformanceLogger::~CUPerformanceLogger() {
  for (LoggerType const type : {LoggerType_ImageStabilization, LoggerType_Export}) {
    try {
      Flush(type);
    } catch (std::exception const&) {  // out of memory: the rows are lost, as with a full disk
    }
  }
}

void CUPerformanceLogger::EndLog(LoggerType type, std::string const& filePath) {
  if (!m_enabled) return;
  std::string const key = GenerateKey(type, filePath);
  PendingLogInfo ended;  // outlives the lock
  std::lock_guard<std::mutex> const lock(m_mutex);
  auto const found = m_pendingLogs.find(key);
  if (found == m_pendingLogs.end()) return;
  ended = std::move(found->second);
  m_pendingLogs.erase(found);
  system_clock::time_point const end = system_clock::now();
  Row row = ended.logData->toRowData(
      AsText(FormatTime(ended.startTime)), AsText(FormatTime(end)),
      AsText(FormatProcessTime(duration_cast<microseconds>(end - ended.startTime))), filePath,
      m_version);
  if (!row.empty()) m_rows[type].push_back(std::move(row));
}

void CUPerformanceLogger::Flush(LoggerType type) {
  if (!m_enabled) return;
  std::vector<Row> rows;
  {
    std::lock_guard<std::mutex> const lock(m_mutex);
    auto const kept = m_rows.find(type);
    if (kept == m_rows.end() || kept->second.empty()) return;
    rows.swap(kept->second);
  }
  std::string const path = m_logDirectory + "/" + LoggerTypeToFileName(type) + ".csv";
  WriteHeaderIfNeeded(type, path);
  std::ofstream file(path, std::ios::app | std::ios::binary);
  if (file) WriteRows(rows, file);
}

std::string CUPerformanceLogger::GenerateKey(LoggerType type, std::string const& filePath) {
  return LoggerTypeToFileName(type) + "::" + filePath;
}

std::string CUPerformanceLogger::LoggerTypeToFileName(LoggerType type) {
  switch (type) {
    case LoggerType_ImageStabilization:
      return "QMR_ImageStabilization";
    case LoggerType_Export:
      return "QMR_Export";
  }
  return "";
}

void CUPerformanceLogger::WriteBomIfNeeded(std::string const& path) {
  std::optional<std::string> const start = StartOf(path);
  if (!start || !start->empty()) return;
  std::ofstream const made(path, std::ios::app | std::ios::binary);
  WriteAt(path, 0, kByteOrderMark);
}

void CUPerformanceLogger::WriteHeaderIfNeeded(LoggerType type, std::string const& path) {
  WriteBomIfNeeded(path);
  std::optional<std::string> const start = StartOf(path);
  if (!start || start->size() > 3 || (start->size() == 3 && *start != kByteOrderMark)) return;
  auto const header = m_headers.find(type);
  if (header == m_headers.end()) return;
  WriteAt(path, static_cast<std::streamoff>(start->size()), header->second + kLineEnd);
}

void CUPerformanceLogger::CreateLogDirectory() {
  m_logDirectory.clear();
  std::unique_ptr<char, decltype(&std::free)> const support(WorkspaceCopyApplicationSupportPath(),
                                                            std::free);
  if (!support) return;
  m_logDirectory = support.get();
  if (m_logDirectory.back() != '/') m_logDirectory += '/';
  m_logDirectory += "Tavik_Inc_IC/Quillmere";
}
