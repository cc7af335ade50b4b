#include "QuillmereLib/filesystem/CUDirectoryInfo.h"

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <Workspace.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "QuillmereLib/core/ThrowErrorCode.h"
#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "QuillmereLib/filesystem/PathRef.h"

namespace {

// Not inlined, as each level of a recursive deletion would keep the room of its reference.
[[gnu::noinline]] bool IsLinkToDirectory(CUStringMac& path) {
  FSRef ref;
  Boolean isDirectory = false;
  return ResolvePath(path, kFSPathMakeRefDoNotFollowLeafSymlink, &ref, &isDirectory) == noErr &&
         !isDirectory && CUDirectory::Exists(&path);
}

// Whether nothing of this path can be made, so that its levels, which may be very many, need not be
// walked through.
bool IsTooLong(CUStringMac& path) {
  FSRef ref;
  return ResolvePath(path, kFSPathMakeRefDefaultOptions, &ref) == bdNamErr;
}

class DirectoryIterator {
 public:
  // A directory that cannot be opened has no entries.
  explicit DirectoryIterator(FSRef const& directory)
      : m_iterator(nullptr),
        m_ended(FSOpenIterator(&directory, kFSIterateFlat, &m_iterator) != noErr) {}
  DirectoryIterator(DirectoryIterator const&) = delete;
  DirectoryIterator& operator=(DirectoryIterator const&) = delete;
  ~DirectoryIterator() {
    if (m_iterator != nullptr) FSCloseIterator(m_iterator);
  }

  // Gives the next entry that is a directory, or none; false at the end, and where listing breaks
  // off.
  bool Next(bool wantDirectory, HFSUniStr255* name) {
    while (!m_ended) {
      ItemCount count = 0;
      FSCatalogInfo info;
      m_ended = FSGetCatalogInfoBulk(m_iterator, 1, &count, nullptr, kFSCatInfoNodeFlags, &info,
                                     nullptr, nullptr, name) != noErr;
      if (count == 0) continue;
      bool const isDirectory = (info.nodeFlags & kFSNodeIsDirectoryMask) != 0;
      if (isDirectory == wantDirectory) return true;
    }
    return false;
  }

 private:
  FSIterator m_iterator;
  bool m_ended;
};

// The name as a path has it. In names the platform writes a slash for a colon; left as it is, it
// would turn the entry "a:b" into a path to the entry "b" of "a".
CUStringMac PathComponent(HFSUniStr255* name) {
  std::replace(name->unicode, name->unicode + name->length, UniChar{'/'}, UniChar{':'});
  return CUStringMac(name->unicode, name->length * static_cast<unsigned int>(sizeof(UniChar)));
}

struct Recycling {
  unsigned int errorCode;
  bool done;
};

void EndRecycling(CFIndex error, void* context) {
  auto* const recycling = static_cast<Recycling*>(context);
  if (error != 0 && error != kWorkspaceUserCancelled) recycling->errorCode = CUError_IOFailure;
  recycling->done = true;
}

}  // namespace

CUDirectoryInfo::CUDirectoryInfo(CUStringMac& path) : CUFileSysytemInfo(path) {}

CUDirectoryInfo::CUDirectoryInfo(CUSharedPtr<CUStringMac> path)
    : CUFileSysytemInfo(std::move(path)) {}

void CUDirectoryInfo::Create() {
  if (CUDirectory::Exists(&fullName)) return;
  if (IsTooLong(fullName)) ThrowErrorCode(CUError_IOFailure);

  std::vector<CUSharedPtr<CUStringMac>> missing = {new CUStringMac(fullName)};
  for (;;) {
    CUSharedPtr<CUStringMac> const parent = new CUStringMac;
    if (CUFailed(missing.back()->PathRemoveLastComponent(*parent)) || CUDirectory::Exists(parent)) {
      break;
    }
    // The root is its own parent, should the system deny even that.
    if (parent->Length() >= missing.back()->Length()) break;
    missing.push_back(parent);
  }
  for (; !missing.empty(); missing.pop_back()) {
    if (!CreateDirectory(missing.back())) ThrowErrorCode(CUError_IOFailure);
  }
}

bool CUDirectoryInfo::CreateDirectory(CUSharedPtr<CUStringMac> path) {
  if (path == nullptr) return false;
  if (CUDirectory::Exists(path)) return true;

  CUStringMac parent;
  CUSharedPtr<CUStringMac> const name = new CUStringMac;
  if (CUFailed(path->PathRemoveLastComponent(parent)) ||
      CUFailed(path->PathGetLastComponent(*name))) {
    return false;
  }
  FSRef parentRef;
  Boolean isDirectory = false;
  if (!MakeRef(parent, &parentRef, &isDirectory) || !isDirectory) return false;
  HFSUniStr255 fileName = {};
  if (CUFailed(CUStringMac::GetUnicodeFileName(name, &fileName))) return false;
  return FSCreateDirectoryUnicode(&parentRef, fileName.length, fileName.unicode, kFSCatInfoNone,
                                  nullptr, nullptr, nullptr, nullptr) == noErr;
}

void CUDirectoryInfo::Delete() {
  FSRef ref;
  if (!CUDirectory::Exists(&fullName) ||
      ResolvePath(fullName, kFSPathMakeRefDoNotFollowLeafSymlink, &ref) != noErr) {
    ThrowErrorCode(CUError_DirectoryNotFound);
  }
  if (FSDeleteObject(&ref) != noErr) ThrowErrorCode(CUError_IOFailure);
}

// What this level keeps on the stack is kept to a few pointers, since a tree may be as deep as a
// path is long.
void CUDirectoryInfo::Delete(bool recursive) {
  if (recursive && !IsLinkToDirectory(fullName)) {
    DeleteSubObjects(GetDirectories(), true);
    DeleteSubObjects(GetFiles(), false);
  }
  Delete();
}

void CUDirectoryInfo::DeleteSubObjects(CUSharedPtr<CUArray> objects, bool areDirectories) {
  if (objects == nullptr) return;
  for (unsigned int i = 0; i < objects->Count(); ++i) {
    CUSharedPtr<CUObject> const object = objects->ObjectAtIndex(i);
    if (areDirectories) {
      if (auto* const directory = dynamic_cast<CUDirectoryInfo*>(object.Get())) {
        directory->Delete(true);
      }
    } else if (auto* const file = dynamic_cast<CUFileInfo*>(object.Get())) {
      file->Delete();
    }
  }
}

void CUDirectoryInfo::Recycle() {
  if (!CUDirectory::Exists(&fullName)) ThrowErrorCode(CUError_DirectoryNotFound);
  Recycling recycling = {0, false};
  WorkspaceRecyclePath(WholePathText(fullName), EndRecycling, &recycling);
  while (!recycling.done) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.5, true);
  if (recycling.errorCode != 0) throw recycling.errorCode;
}

CUSharedPtr<CUArray> CUDirectoryInfo::GetDirectories() { return GetObjects(true); }

CUSharedPtr<CUArray> CUDirectoryInfo::GetFiles() { return GetObjects(false); }

CUSharedPtr<CUArray> CUDirectoryInfo::GetObjects(bool wantDirectories) {
  CUSharedPtr<CUMutableArray> const objects = new CUMutableArray;
  FSRef ref;
  Boolean isDirectory = false;
  if (!MakeRef(fullName, &ref, &isDirectory) || !isDirectory) ThrowErrorCode(CUError_IOFailure);
  DirectoryIterator iterator(ref);
  HFSUniStr255 name;
  CUStringMac path;
  while (iterator.Next(wantDirectories, &name)) {
    CUStringMac const component = PathComponent(&name);
    // A text for which there was no memory counts as empty, and would make the entry this
    // directory.
    if (static_cast<CFStringRef>(component) == nullptr ||
        CUFailed(fullName.PathAppend(component, path)) || path.Length() == 0) {
      continue;
    }
    if (wantDirectories) {
      objects->AddObject(new CUDirectoryInfo(path));
    } else {
      objects->AddObject(new CUFileInfo(path));
    }
  }
  return objects;
}
