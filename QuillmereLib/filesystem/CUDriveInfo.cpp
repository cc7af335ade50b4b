#include "QuillmereLib/filesystem/CUDriveInfo.h"

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <DiskArbitration/DiskArbitration.h>
#include <IOKit/IOKitLib.h>

#include <cstring>
#include <memory>
#include <new>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/core/Create.h"
#include "QuillmereLib/core/ThrowErrorCode.h"
#include "QuillmereLib/filesystem/PathRef.h"

namespace {

// Owns a service or an iterator of the device registry, or 0.
class RegistryHolder {
 public:
  explicit RegistryHolder(io_object_t object) : m_object(object) {}
  RegistryHolder(RegistryHolder const&) = delete;
  RegistryHolder& operator=(RegistryHolder const&) = delete;
  ~RegistryHolder() { Reset(0); }

  io_object_t Get() const { return m_object; }

  void Reset(io_object_t object) {
    if (m_object != 0) IOObjectRelease(m_object);
    m_object = object;
  }

 private:
  io_object_t m_object;
};

bool VolumeOf(FSRef const& ref, FSVolumeRefNum* volume) {
  FSCatalogInfo info;
  if (FSGetCatalogInfo(&ref, kFSCatInfoVolume, &info, nullptr, nullptr, nullptr) != noErr) {
    return false;
  }
  *volume = info.volume;
  return true;
}

// The volume at the path. The path is a copy, since to convert it would change the object's own,
// which threads share.
bool VolumeAtPath(CUStringMac path, FSVolumeRefNum* volume) {
  FSRef ref;
  return MakeRef(path, &ref) && VolumeOf(ref, volume);
}

bool SizesAtPath(CUStringMac const& path, FSVolumeInfo* info) {
  FSVolumeRefNum volume = 0;
  return VolumeAtPath(path, &volume) &&
         FSGetVolumeInfo(volume, 0, nullptr, kFSVolInfoSizes, info, nullptr, nullptr) == noErr;
}

CFURLRef CreateDirectoryUrl(CUStringMac const& path) {
  CFStringRef const text = path;
  if (text == nullptr) return nullptr;
  return CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text, kCFURLPOSIXPathStyle, true);
}

CFStringRef CopyRootPath(FSRef const& root) {
  CFHolder<CFURLRef> const url(CFURLCreateFromFSRef(kCFAllocatorDefault, &root));
  return url ? CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle) : nullptr;
}

CFTypeRef CreateProperty(io_object_t service, CFStringRef key) {
  return IORegistryEntryCreateCFProperty(service, key, kCFAllocatorDefault, 0);
}

bool IsSet(io_object_t service, CFStringRef key) {
  CFHolder<CFTypeRef> const property(CreateProperty(service, key));
  return property && CFBooleanGetValue(static_cast<CFBooleanRef>(property.Get()));
}

// Asks `question` of the service and then of its ancestors, until one gives anything but nothing.
template <class Question>
auto AskUpwards(io_object_t service, Question question) -> decltype(question(service)) {
  io_iterator_t ancestors = 0;
  if (IORegistryEntryCreateIterator(service, kIOServicePlane,
                                    kIORegistryIterateRecursively | kIORegistryIterateParents,
                                    &ancestors) != KERN_SUCCESS ||
      ancestors == 0) {
    return {};
  }
  RegistryHolder const iterator(ancestors);
  IOObjectRetain(service);
  for (RegistryHolder entry(service); entry.Get() != 0; entry.Reset(IOIteratorNext(ancestors))) {
    if (auto const answer = question(entry.Get())) return answer;
  }
  return {};
}

}  // namespace

CUDriveInfo::CUDriveInfo(CUStringMac& path) : driveType(CUDriveType_Unknown) { Init(&path); }

CUDriveInfo::CUDriveInfo(CUSharedPtr<CUStringMac> path) : driveType(CUDriveType_Unknown) {
  Init(path.Get());
}

CUSharedPtr<CUDriveInfo> CUDriveInfo::CreateCUDriveInfo(CUStringMac& path) {
  return CreateOrNull<CUDriveInfo>(path);
}

CUSharedPtr<CUDriveInfo> CUDriveInfo::CreateCUDriveInfo(CUSharedPtr<CUStringMac> path) {
  return CreateOrNull<CUDriveInfo>(path);
}

bool CUDriveInfo::Init(CUStringMac* path) {
  if (path == nullptr) ThrowErrorCode(CUError_NullArgument);
  FSRef ref;
  CUStringMac nearest = *path;
  while (!MakeRef(nearest, &ref)) {
    CUStringMac parent;
    if (CUFailed(nearest.PathRemoveLastComponent(parent))) {
      ThrowErrorCode(CUError_InvalidArgument);
    }
    if (parent == CUStringMac("/Volumes", CUString_CharCode_ASCII)) {
      drivePath = nearest;
      driveName = nearest;
      return true;
    }
    // A root that cannot be reached either has no ancestor.
    if (parent.Length() >= nearest.Length()) ThrowErrorCode(CUError_InvalidArgument);
    nearest = parent;
  }

  FSVolumeRefNum volume = 0;
  FSRef root;
  if (!VolumeOf(ref, &volume) ||
      FSGetVolumeInfo(volume, 0, nullptr, kFSVolInfoNone, nullptr, nullptr, &root) != noErr) {
    ThrowErrorCode(CUError_InvalidArgument);
  }
  CFHolder<CFStringRef> const rootPath(CopyRootPath(root));
  if (!rootPath) ThrowErrorCode(CUError_InvalidArgument);
  drivePath = CUStringMac(rootPath.Get());
  driveName = CUStringMac(rootPath.Get());
  Classify();
  return true;
}

void CUDriveInfo::Classify() {
  driveType = CUDriveType_Fixed;
  CFHolder<CFStringRef> const bsdName(QueryBSDDevName());
  if (!bsdName) {
    driveType = CUDriveType_NoBSDDevice;
    return;
  }
  RegistryHolder const service(QueryIOServiceByBSDName(bsdName.Get()));
  if (service.Get() != 0) driveType = KindOf(service.Get());
}

_CUDriveType CUDriveInfo::KindOf(unsigned int service) {
  if (IsCDDriveByIORegistryServiceTree(service)) return CUDriveType_CDROM;
  CFHolder<CFStringRef> const location(
      QueryIOPropertyPhysicalInterconnectLocationByIORegistryServiceTree(service));
  bool const isEjectable = IsEjectableByIORegistryServiceTree(service);
  bool const isRemovable = IsRemovableByIORegistryServiceTree(service);
  if (location && CFStringCompare(location.Get(), CFSTR("RAM"), 0) == kCFCompareEqualTo) {
    return CUDriveType_RAM;
  }
  return isEjectable || isRemovable ? CUDriveType_Removable : CUDriveType_Fixed;
}

CUSharedPtr<CUStringMac> CUDriveInfo::Description() {
  CUSharedPtr<CUStringMac> const prefix = CUObject::Description();
  return new CUStringMac(*prefix + driveName);
}

CUSharedPtr<CUStringMac> CUDriveInfo::GetName() { return new CUStringMac(driveName); }

CUSharedPtr<CUStringMac> CUDriveInfo::GetVolumeLabel() {
  FSVolumeRefNum volume = 0;
  HFSUniStr255 name;
  if (!VolumeAtPath(driveName, &volume) ||
      FSGetVolumeInfo(volume, 0, nullptr, kFSVolInfoNone, nullptr, &name, nullptr) != noErr) {
    return nullptr;
  }
  return new CUStringMac(name.unicode, name.length * 2u);
}

CUSharedPtr<CUStringMac> CUDriveInfo::GetDisplayString() { return GetVolumeLabel(); }

bool CUDriveInfo::IsReady() {
  CFHolder<CFURLRef> const url(CreateDirectoryUrl(driveName));
  if (!url) return false;
  CFHolder<CFURLEnumeratorRef> const volumes(
      CFURLEnumeratorCreateForMountedVolumes(kCFAllocatorDefault, 0, nullptr));
  if (!volumes) return false;
  for (;;) {
    CFURLRef volume = nullptr;
    CFURLEnumeratorResult const result = CFURLEnumeratorGetNextURL(volumes.Get(), &volume, nullptr);
    if (result == kCFURLEnumeratorEnd) return false;
    if (result == kCFURLEnumeratorSuccess && CFEqual(volume, url.Get())) return true;
  }
}

unsigned long long CUDriveInfo::GetTotalSize() {
  FSVolumeInfo info;
  return SizesAtPath(driveName, &info) ? info.totalBytes : 0;
}

unsigned long long CUDriveInfo::GetTotalFreeSize() {
  FSVolumeInfo info;
  return SizesAtPath(driveName, &info) ? info.freeBytes : 0;
}

_CUDriveType CUDriveInfo::GetDriveType() { return driveType; }

bool CUDriveInfo::IsSysytemDrive() {
  return driveName == CUStringMac("/", CUString_CharCode_ASCII);
}

__CFString const* CUDriveInfo::QueryBSDDevName() {
  CFHolder<CFURLRef> const url(CreateDirectoryUrl(driveName));
  if (!url) return nullptr;
  CFHolder<DASessionRef> const session(DASessionCreate(kCFAllocatorDefault));
  if (!session) return nullptr;
  CFHolder<DADiskRef> const disk(
      DADiskCreateFromVolumePath(kCFAllocatorDefault, session.Get(), url.Get()));
  char const* const name = disk ? DADiskGetBSDName(disk.Get()) : nullptr;
  if (name == nullptr) return nullptr;
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const*>(name),
                                 static_cast<CFIndex>(std::strlen(name)), kCFStringEncodingASCII,
                                 false);
}

unsigned int CUDriveInfo::QueryIOServiceByBSDName(__CFString const* bsdName) {
  if (bsdName == nullptr) return 0;
  CFIndex const length = CFStringGetLength(bsdName);
  CFIndex const size = CFStringGetMaximumSizeForEncoding(length + 1, kCFStringEncodingUTF8);
  if (size <= 0) return 0;
  std::unique_ptr<char[]> const name(new (std::nothrow) char[static_cast<std::size_t>(size)]());
  if (name == nullptr ||
      CFStringGetBytes(bsdName, CFRangeMake(0, length), kCFStringEncodingUTF8, 0, false,
                       reinterpret_cast<UInt8*>(name.get()), size - 1, nullptr) != length) {
    return 0;
  }
  return IOServiceGetMatchingService(kIOMasterPortDefault,
                                     IOBSDNameMatching(kIOMasterPortDefault, 0, name.get()));
}

bool CUDriveInfo::IsCDDriveByIORegistryServiceTree(unsigned int service) {
  return AskUpwards(service,
                    [this](io_object_t entry) { return IsWholeMediaAndCDDriveByIOService(entry); });
}

__CFString const* CUDriveInfo::QueryIOPropertyPhysicalInterconnectLocationByIORegistryServiceTree(
    unsigned int service) {
  return AskUpwards(service, [this](io_object_t entry) {
    return QueryIOPropertyPhysicalInterconnectLocationByIOService(entry);
  });
}

bool CUDriveInfo::IsEjectableByIORegistryServiceTree(unsigned int service) {
  return IsSet(service, CFSTR("Ejectable"));
}

bool CUDriveInfo::IsRemovableByIORegistryServiceTree(unsigned int service) {
  return IsSet(service, CFSTR("Removable"));
}

bool CUDriveInfo::IsWholeMediaAndCDDriveByIOService(unsigned int service) {
  if (!IOObjectConformsTo(service, "IOMedia") || !IsSet(service, CFSTR("Whole"))) return false;
  return IOObjectConformsTo(service, "IOCDMedia") || IOObjectConformsTo(service, "IODVDMedia") ||
         IOObjectConformsTo(service, "IOBDMedia");
}

__CFString const* CUDriveInfo::QueryIOPropertyPhysicalInterconnectLocationByIOService(
    unsigned int service) {
  CFHolder<CFTypeRef> const property(CreateProperty(service, CFSTR("Protocol Characteristics")));
  if (!property) return nullptr;
  auto const* const location = static_cast<CFStringRef>(CFDictionaryGetValue(
      static_cast<CFDictionaryRef>(property.Get()), CFSTR("Physical Interconnect Location")));
  if (location == nullptr) return nullptr;
  CFRange const all = CFRangeMake(0, CFStringGetLength(location));
  return CFStringCreateWithSubstring(kCFAllocatorDefault, location, all);
}
