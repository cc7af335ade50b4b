#include "QuillmereLib/filesystem/CUDirectory.h"

#include <utility>

#include "QuillmereLib/filesystem/PathRef.h"

namespace {

using Entry = CUSharedPtr<CUDirectoryInfo>;

Entry EntryAt(CUSharedPtr<CUStringMac> path) { return new CUDirectoryInfo(std::move(path)); }
Entry EntryAt(CUStringMac& path) { return new CUDirectoryInfo(path); }

}  // namespace

bool CUDirectory::Exists(CUStringMac* path) {
  if (path == nullptr) return false;
  FSRef ref;
  Boolean isDirectory = false;
  return MakeRef(*path, &ref, &isDirectory) && isDirectory;
}

bool CUDirectory::Exists(CUSharedPtr<CUStringMac> path) { return Exists(path.Get()); }

CUSharedPtr<CUDirectoryInfo> CUDirectory::CreateDirectory(CUSharedPtr<CUStringMac> path) {
  Entry entry = EntryAt(std::move(path));
  entry->Create();
  return entry;
}

CUSharedPtr<CUDirectoryInfo> CUDirectory::CreateDirectory(CUStringMac* path) {
  Entry entry = EntryAt(*path);
  entry->Create();
  return entry;
}

void CUDirectory::Delete(CUSharedPtr<CUStringMac> path) { EntryAt(std::move(path))->Delete(); }
void CUDirectory::Delete(CUStringMac* path) { EntryAt(*path)->Delete(); }

void CUDirectory::Delete(CUSharedPtr<CUStringMac> path, bool recursive) {
  EntryAt(std::move(path))->Delete(recursive);
}
void CUDirectory::Delete(CUStringMac* path, bool recursive) { EntryAt(*path)->Delete(recursive); }

void CUDirectory::Recycle(CUSharedPtr<CUStringMac> path) { EntryAt(*path)->Recycle(); }

void CUDirectory::Rename(CUSharedPtr<CUStringMac> path, CUSharedPtr<CUStringMac> newName) {
  EntryAt(*path)->Rename(std::move(newName));
}

CUSharedPtr<CUArray> CUDirectory::GetDirectories(CUSharedPtr<CUStringMac> path) {
  return EntryAt(std::move(path))->GetDirectories();
}
CUSharedPtr<CUArray> CUDirectory::GetDirectories(CUStringMac* path) {
  return EntryAt(*path)->GetDirectories();
}

CUSharedPtr<CUArray> CUDirectory::GetFiles(CUSharedPtr<CUStringMac> path) {
  return EntryAt(std::move(path))->GetFiles();
}
CUSharedPtr<CUArray> CUDirectory::GetFiles(CUStringMac* path) { return EntryAt(*path)->GetFiles(); }
