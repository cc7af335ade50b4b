#include "FileExamination.h"

#include <algorithm>
#include <utility>

#include "FolderListing.h"
#include "RunLogs.h"
#include "StopRequest.h"
#include "TypeGuess.h"
#include "VisibleText.h"

namespace {

constexpr unsigned long long kPortionSize = 1024 * 1024;
constexpr std::size_t kBlockSize = 64 * 1024;

std::string ReasonOf(unsigned int errorCode, std::string const& path) {
  switch (errorCode) {
    case CUError_FileNotFound:
      return "is not there any more";
    case CUError_NotSupported:
      return "has become a folder";
    default: {
      std::string const reason = WhyUnreadable(path);
      return reason.empty() ? "the system refuses to open it" : "cannot be opened: " + reason;
    }
  }
}

// A stream keeps the length of its opening, so the present one is asked of another.
std::string BrokenOff(CUStringMac& path, unsigned long long bytesRead, unsigned long long length) {
  CUFileStream again(&path, CUStream_FileMode_Open, CUStream_FileAccess_Read, true);
  bool const shorter = again.CanRead() && again.Length() < length;
  return std::string(shorter ? "became shorter while it was read" : "cannot be read to its end") +
         ": " + std::to_string(bytesRead) + " of " + std::to_string(length) + " bytes came";
}

}  // namespace

FileExamination::FileExamination(std::function<void(unsigned long long)> onBytes)
    : m_onBytes(std::move(onBytes)), m_block(kBlockSize) {}

void FileExamination::Examine(FileTask& task) {
  if (StopRequested()) return;
  BeginReading(task);
  CUPerformanceCounter counter;
  counter.StartCounter();
  CUSharedPtr<CUFileStream> file;
  try {
    file = new CUFileStream(task.path, CUStream_FileMode_Open, CUStream_FileAccess_Read, false);
  } catch (unsigned int errorCode) {
    task.failure = ReasonOf(errorCode, Utf8Of(*task.path));
    return;
  }
  ExamineOpened(task, file);
  counter.EndCounter();
  task.microseconds = counter.GetProcessingTime();
  if (task.finding == nullptr) return;
  EndReading(task);
  CULog::Write(kLogDebug, "read %s: %s, %llu bytes", Utf8Of(*task.path).c_str(),
               task.finding->Type().c_str(), task.finding->Size());
}

void FileExamination::ExamineOpened(FileTask& task, CUSharedPtr<CUFileStream> file) {
  unsigned long long const length = file->Length();
  std::string type = "empty";
  if (length != 0) {
    _CURange range = {0, std::min(length, kTypeGuessSize)};
    CUSharedPtr<CUMemoryStream> const head = CUMemoryStream::CreateMemoryStreamPtr(file, range);
    if (head == nullptr) {
      task.failure = BrokenOff(*task.path, 0, length);
      return;
    }
    type = GuessType(*head);
  }

  Checksum checksum;
  for (unsigned long long start = 0; start < length;) {
    if (StopRequested()) return;
    _CURange const portion = {start, std::min(length - start, kPortionSize)};
    file->SetReadaleRange(portion);
    unsigned long long const bytesRead = ReadPortion(*file, start, checksum);
    m_onBytes(bytesRead);
    start += bytesRead;
    if (bytesRead != portion.length) {
      task.failure = BrokenOff(*task.path, start, length);
      return;
    }
  }
  task.finding = new Finding(*task.path, length, type, checksum.Sum());
}

// Asks for block after block until nothing comes: where the portion ends is the readable range's
// business.
unsigned long long FileExamination::ReadPortion(CUStream& stream, unsigned long long start,
                                                Checksum& checksum) {
  unsigned long long total = 0;
  while (true) {
    unsigned long long const got =
        stream.Read(m_block.data(), m_block.size(), static_cast<long long>(start + total),
                    CUStream_Seek_Origin_Begin);
    if (got == 0) return total;
    checksum.Add(m_block.data(), got);
    total += got;
  }
}
