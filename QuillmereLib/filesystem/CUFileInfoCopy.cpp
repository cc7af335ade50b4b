// How a CUFileInfo copies and moves itself.

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/core/ThrowErrorCode.h"
#include "QuillmereLib/filesystem/CUFile.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "QuillmereLib/filesystem/PathRef.h"
#include "QuillmereLib/streams/CUFileStream.h"

namespace {

// How often progress is reported, and how long the run loop turns at a time, in seconds.
constexpr CFTimeInterval kInterval = 0.1;

constexpr int kTurnsAfterCancel = 100;

void TurnRunLoop() { CFRunLoopRunInMode(kCFRunLoopDefaultMode, kInterval, true); }

bool CanBeRead(CUStringMac* path) {
  CUFileStream stream(path, CUStream_FileMode_Open, CUStream_FileAccess_Read, true);
  return stream.CanRead();
}

unsigned long long NumberIn(CFDictionaryRef status, CFStringRef key) {
  long long value = 0;
  auto const number = static_cast<CFNumberRef>(CFDictionaryGetValue(status, key));
  if (number != nullptr) CFNumberGetValue(number, kCFNumberLongLongType, &value);
  return static_cast<unsigned long long>(value);
}

}  // namespace

CUResult CUFileInfo::CopyWithProgress(CUSharedPtr<CUStringMac> destination,
                                      _CopyProgress_Info* info, bool overwrite) {
  z_CopyMoveWithProgressErrorCheack(destination, info, overwrite, true);
  return z_CopyMoveWithProgress(destination, info, overwrite, true);
}

CUResult CUFileInfo::MoveWithProgress(CUSharedPtr<CUStringMac> destination,
                                      _CopyProgress_Info* info, bool overwrite) {
  z_CopyMoveWithProgressErrorCheack(destination, info, overwrite, false);
  return z_CopyMoveWithProgress(destination, info, overwrite, false);
}

void CUFileInfo::z_CopyMoveWithProgressErrorCheack(CUSharedPtr<CUStringMac> destination,
                                                   _CopyProgress_Info* info, bool overwrite, bool) {
  if (info == nullptr || destination == nullptr) ThrowErrorCode(CUError_NullArgument);
  if (fullName.Length() == 0 || destination->Length() == 0) {
    ThrowErrorCode(CUError_InvalidArgument);
  }
  if (!CanBeRead(&fullName)) ThrowErrorCode(CUError_FileNotFound);
  // Most destinations are not there. Asking first spares the exception of a stream that cannot
  // open.
  if (!overwrite && CUFile::Exists(destination) && CanBeRead(destination.Get())) {
    ThrowErrorCode(CUError_IOFailure);
  }
}

CUResult CUFileInfo::z_CopyMoveWithProgress(CUSharedPtr<CUStringMac> destination,
                                            _CopyProgress_Info* info, bool overwrite, bool isCopy) {
  FSFileOperationClientContext context = {0, info, nullptr, nullptr, nullptr};
  info->owner = this;
  CFHolder<FSFileOperationRef> const operation(FSFileOperationCreate(kCFAllocatorDefault));
  if (!operation) return CUResult_OperationSetupFailed;
  CFRunLoopRef const runLoop = CFRunLoopGetCurrent();
  if (FSFileOperationScheduleWithRunLoop(operation.Get(), runLoop, kCFRunLoopDefaultMode) !=
      noErr) {
    return CUResult_OperationSetupFailed;
  }

  CUStringMac folder;
  CUStringMac name;
  destination->PathRemoveLastComponent(folder);
  destination->PathGetFileName(name);
  if (folder.Length() == 0 || name.Length() == 0) return CUResult_Failed;

  progressCancelled = false;
  progressFinished = false;
  progressFailed = false;
  CUResult const failure = isCopy ? CUResult_CopyFailed : CUResult_MoveFailed;
  CUResult result = failure;
  auto const start = isCopy ? FSPathCopyObjectAsync : FSPathMoveObjectAsync;
  OptionBits const flags = overwrite ? kFSFileOperationOverwrite : kFSFileOperationDefaultOptions;
  if (start(operation.Get(), WholePathText(fullName), WholePathText(folder), name, flags,
            CopyProgressRoutineMac, kInterval, &context) == noErr) {
    while (!progressFinished) TurnRunLoop();
    if (!progressCancelled) {
      result = progressFailed ? failure : CUResult_Success;
    } else {
      // The end that the operation reports after a cancel sets progressFailed. Then nothing is left
      // to be removed, and what stands there is an old destination.
      for (int turn = 0; turn < kTurnsAfterCancel && !progressFailed; ++turn) {
        if (!CUFile::Exists(destination)) break;
        TurnRunLoop();
      }
      result = CUResult_Success;
    }
  }
  FSFileOperationUnscheduleFromRunLoop(operation.Get(), runLoop, kCFRunLoopDefaultMode);
  return result;
}

void CUFileInfo::CopyProgressRoutineMac(__FSFileOperation* operation, char const*,
                                        unsigned int stage, int error, __CFDictionary const* status,
                                        void* info) {
  unsigned long long total = 0;
  unsigned long long completed = 0;
  if (status != nullptr) {
    completed = NumberIn(status, kFSOperationBytesCompleteKey);
    total = NumberIn(status, kFSOperationTotalBytesKey);
  }
  auto* const progress = static_cast<_CopyProgress_Info*>(info);
  if (progress == nullptr || progress->owner == nullptr) {
    FSFileOperationCancel(operation);
    return;
  }
  CUFileInfo& owner = *progress->owner;
  if (error == noErr && total != 0 &&
      !progress->progressCallback(total, completed, progress->clientData)) {
    owner.progressCancelled = true;
    owner.progressFinished = true;
    FSFileOperationCancel(operation);
  }
  if (stage == kFSOperationStageComplete) owner.progressFinished = true;
  if (error != noErr) {
    owner.progressFinished = true;
    owner.progressFailed = true;
    FSFileOperationCancel(operation);
  }
}
