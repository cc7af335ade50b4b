#include "TreeCopy.h"

#include "ErrorWords.h"
#include "RunLogs.h"
#include "StopRequest.h"
#include "VisibleText.h"

namespace {

struct CopyState {
  ProgressBar& bar;
  unsigned long long bytesBefore;  // of the files before this one
  bool stopped;
};

// Called by the library on this thread, between its pieces of work.
bool OnProgress(unsigned long long, unsigned long long completed, void* clientData) {
  auto& state = *static_cast<CopyState*>(clientData);
  state.bar.SetBytes(state.bytesBefore + completed);
  state.stopped = StopRequested();
  return !state.stopped;
}

}  // namespace

bool TreeCopy::Run(WalkResult const& walk) {
  if (!CreateFolder(std::string())) return true;
  for (std::string const& place : walk.folders) {
    if (StopRequested()) return false;
    CreateFolder(place);
  }

  unsigned int fileCount = 0;
  unsigned long long byteCount = 0;
  for (CUSharedPtr<FileTask> const& task : walk.files) {
    if (task->finding == nullptr) continue;
    ++fileCount;
    byteCount += task->finding->Size();
  }
  m_bar.Begin("copied: ", fileCount, byteCount);
  unsigned long long bytesDone = 0;
  for (CUSharedPtr<FileTask> const& task : walk.files) {
    if (task->finding == nullptr) continue;
    if (StopRequested() || !CopyFile(*task, bytesDone)) return false;
    bytesDone += task->finding->Size();
    m_bar.SetBytes(bytesDone);
    m_bar.AddFile();
  }
  m_bar.Hide();
  return true;
}

bool TreeCopy::CreateFolder(std::string const& place) {
  CUSharedPtr<CUStringMac> const path = PathOf(place);
  try {
    CUDirectory::CreateDirectory(path);
    return true;
  } catch (unsigned int errorCode) {
    m_failures.Add(Utf8Of(*path), "the folder cannot be created: " + ErrorWords(errorCode));
    return false;
  }
}

// False when it was stopped.
bool TreeCopy::CopyFile(FileTask& task, unsigned long long bytesBefore) {
  CUSharedPtr<CUStringMac> const destination = PathOf(task.place);
  std::string problem;
  if (!m_takenPlaces.insert(task.place).second) {
    problem = "another file of this run is there";
  } else {
    CopyState state = {m_bar, bytesBefore, false};
    _CopyProgress_Info info = {OnProgress, &state, nullptr};
    BeginCopying(task);
    try {
      CUResult const result =
          CUFileInfo(task.path).CopyWithProgress(destination, &info, m_overwrite);
      if (state.stopped) return false;
      if (CUFailed(result)) problem = WhyFailed(destination, task.finding->Size(), result);
    } catch (unsigned int errorCode) {
      bool const refused = errorCode == CUError_IOFailure;
      problem =
          refused ? "a file is there already; --overwrite replaces it" : ErrorWords(errorCode);
    }
  }
  if (problem.empty()) {
    EndCopying(task);
    CULog::Write(kLogDebug, "copied to %s", Utf8Of(*destination).c_str());
    ++m_filesCopied;
    m_bytesCopied += task.finding->Size();
  } else {
    m_failures.Add(Utf8Of(*task.path),
                   "not copied to " + VisibleText(Utf8Of(*destination)) + ": " + problem);
  }
  return true;
}

CUSharedPtr<CUStringMac> TreeCopy::PathOf(std::string const& place) {
  if (place.empty()) return m_output;
  CUSharedPtr<CUStringMac> path = new CUStringMac;
  m_output->PathAppend(CUStringMac(place.c_str(), CUString_CharCode_UTF8), *path);
  return path;
}

// The result of a copy does not tell what the system had against it.
std::string TreeCopy::WhyFailed(CUSharedPtr<CUStringMac> destination, unsigned long long size,
                                CUResult result) {
  CUStringMac folder;
  destination->PathRemoveLastComponent(folder);
  if (!CUDirectory::Exists(&folder)) return "its folder is missing";
  if (CUDirectory::Exists(destination)) return "a folder is there already";
  if (CUFile::Exists(destination) && !m_overwrite) {
    return "a file is there already; --overwrite replaces it";
  }
  CUSharedPtr<CUDriveInfo> const drive = CUDriveInfo::CreateCUDriveInfo(destination);
  if (drive != nullptr && drive->GetTotalFreeSize() < size) {
    return ResultWords(result) + "; too few bytes are free on its drive";
  }
  return ResultWords(result);
}
