// The files of a CULog: which one is written, when the next one is, and what is known of them.

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <SystemReport.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUFile.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "QuillmereLib/logging/CULog.h"
#include "QuillmereLib/logging/LogState.h"
#include "QuillmereLib/values/CUDateTime.h"

namespace {

bool IsDate(UTCDateTime const& date) {
  return date.highSeconds != 0 || date.lowSeconds != 0 || date.fraction != 0;
}

// False where the file, or the date, is not there.
bool GetFileDate(CFStringRef path, _Log_DateTime_Type type, CFAbsoluteTime* at) {
  if (path == nullptr) return false;
  CFHolder<CFURLRef> const url(
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path, kCFURLPOSIXPathStyle, false));
  bool const isCreation = type == _Log_DateTime_Created;
  FSRef ref;
  FSCatalogInfo info;
  if (!url || !CFURLGetFSRef(url.Get(), &ref) ||
      FSGetCatalogInfo(&ref, isCreation ? kFSCatInfoCreateDate : kFSCatInfoContentMod, &info,
                       nullptr, nullptr, nullptr) != noErr) {
    return false;
  }
  UTCDateTime const date = isCreation ? info.createDate : info.contentModDate;
  return IsDate(date) && UCConvertUTCDateTimeToCFAbsoluteTime(&date, at) == noErr;
}

}  // namespace

CUResult CULog::Init(CUSharedPtr<CUStringMac> folder, CUSharedPtr<CUStringMac> fileName,
                     unsigned int level) {
  CUAutoLock const guard(&m_lock);
  if (folder == nullptr || fileName == nullptr) return CUResult_Failed;
  m_logFolder = new CUStringMac(*folder);
  m_logFileName = new CUStringMac(*fileName);
  m_logLevel = level;
  if (!CUDirectory::Exists(m_logFolder) && CUDirectory::CreateDirectory(m_logFolder) == nullptr) {
    return CUResult_Failed;
  }
  m_logFileIndex = ChooseFile();
  return CUResult_Success;
}

unsigned int CULog::ChooseFile() {
  unsigned int chosen = 0;
  CUSharedPtr<CUDateTime> latest;
  for (unsigned int i = 0; i < kLogFileCount; ++i) {
    CUSharedPtr<CUStringMac> const path =
        GetLogFilePath(m_logFolder, m_logFileName, static_cast<int>(i));
    if (path == nullptr) continue;
    if (!CUFile::Exists(path)) return i == 0 ? 0 : i - 1;
    CUSharedPtr<CUDateTime> const date = GetLogFileTime(path, _Log_DateTime_Modified);
    if (date == nullptr) continue;
    if (latest == nullptr || *latest < *date) {
      latest = date;
      chosen = i;
    }
  }
  return chosen;
}

CUSharedPtr<CUStringMac> CULog::GetLogFilePath(CUSharedPtr<CUStringMac> folder,
                                               CUSharedPtr<CUStringMac> fileName, int index) {
  LogStateUse const state;
  if (!state || folder == nullptr || fileName == nullptr) return nullptr;
  // Of a copy, as the caller's string may be shared.
  CUStringMac stem(*fileName);
  char const* const stemText = stem;
  if (stemText == nullptr) return nullptr;
  CUSharedPtr<CUStringMac> const name =
      CUStringMac::CreateWithFormat(state->g_pLogFileFmt, stemText, index);
  CUSharedPtr<CUStringMac> path = new CUStringMac;
  if (name == nullptr || CUFailed(folder->PathAppend(*name, *path))) return nullptr;
  return path;
}

CUSharedPtr<CUDateTime> CULog::GetLogFileTime(CUSharedPtr<CUStringMac> path,
                                              _Log_DateTime_Type type) {
  if (path == nullptr || type > _Log_DateTime_Modified) return nullptr;
  CFAbsoluteTime at = 0;
  if (!GetFileDate(*path, type, &at)) return nullptr;
  CFHolder<CFTimeZoneRef> const zone(CFTimeZoneCopySystem());
  if (!zone) return nullptr;
  CFGregorianDate const fields = CFAbsoluteTimeGetGregorianDate(at, zone.Get());
  return CUDateTime::Create(fields.year, fields.month, fields.day, fields.hour, fields.minute,
                            static_cast<int>(fields.second));
}

unsigned int CULog::GetStringByteSize(CUSharedPtr<CUStringMac> text) {
  unsigned int size = 0;
  if (text == nullptr || CUFailed(text->GetString(nullptr, CUString_CharCode_UTF8, size))) return 0;
  return size;
}

unsigned long long CULog::GetLogFileSize(CUSharedPtr<CUStringMac> path) {
  if (path == nullptr) return 0;
  try {
    return CUFileInfo(std::move(path)).Length();
  } catch (...) {
    return 0;
  }
}

void CULog::DeleteLogFile(CUSharedPtr<CUStringMac> path) {
  try {
    if (CUFile::Exists(path)) CUFile::Delete(path);
  } catch (...) {
  }
}

CUSharedPtr<CUStringMac> CULog::GetWriteableLogPath(unsigned int byteCount) {
  CUSharedPtr<CUStringMac> path =
      GetLogFilePath(m_logFolder, m_logFileName, static_cast<int>(m_logFileIndex));
  if (path == nullptr || GetLogFileSize(path) + byteCount <= kLogFileSizeLimit) return path;
  m_logFileIndex = m_logFileIndex + 1 < kLogFileCount ? m_logFileIndex + 1 : 0;
  path = GetLogFilePath(m_logFolder, m_logFileName, static_cast<int>(m_logFileIndex));
  DeleteLogFile(path);
  return path;
}

void CULog::WriteSystemInfo(CUSharedPtr<CUStringMac> fileName) {
  CUAutoLock const guard(&m_lock);
  if (m_logFolder == nullptr || fileName == nullptr) return;
  try {
    CUSharedPtr<CUStringMac> const path = new CUStringMac;
    if (!CUFailed(m_logFolder->PathAppend(*fileName, *path))) z_WriteSystemInfo(path);
  } catch (...) {
  }
}

void z_WriteSystemInfo(CUSharedPtr<CUStringMac> path) {
  if (path == nullptr) return;
  char const* const text = *path;
  if (text == nullptr) return;
  char command[2048];
  int const length =
      std::snprintf(command, sizeof command, "%s > \"%s\" &", SystemReportTool(), text);
  if (length < 0 || static_cast<unsigned int>(length) >= sizeof command) return;
  // Tells only whether a shell could be started, and callers do not ask.
  static_cast<void>(std::system(command) == 0);
}
