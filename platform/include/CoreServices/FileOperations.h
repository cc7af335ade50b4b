#pragma once

// Copying and moving files in the background, with reports to a run loop.
//
// An operation belongs to the thread of its run loop: it is made, scheduled, started and released
// there, and its callback comes there. It does one piece of work in its life.

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreServices/Files.h>

typedef struct __FSFileOperation* FSFileOperationRef;

enum : OptionBits { kFSFileOperationDefaultOptions = 0, kFSFileOperationOverwrite = 1 };

typedef UInt32 FSFileOperationStage;
enum : FSFileOperationStage { kFSOperationStageRunning = 2, kFSOperationStageComplete = 3 };

// The keys of a status: numbers, in bytes.
CF_INSIDE CFStringRef const kFSOperationTotalBytesKey;
CF_INSIDE CFStringRef const kFSOperationBytesCompleteKey;

// What comes back to the callback as `info`. The version is 0 and the functions are null.
struct FSFileOperationClientContext {
  CFIndex version;
  void* info;
  void const* (*retain)(void const* info);
  void (*release)(void const* info);
  CFStringRef (*copyDescription)(void const* info);
};

// Called by the run loop. At stage kFSOperationStageRunning `status` tells how many bytes of how
// many are done: first after one interval and then once an interval, never going back, and at last,
// with all of them done, just before the destination comes into being. A cancel within that last
// call still keeps it from doing so. A file without bytes has no such calls. Then comes stage
// kFSOperationStageComplete, once, without a status: `error` is 0 where the work is done,
// userCanceledErr after a cancel, and the status of what failed otherwise. `currentItem` is the
// source. `status` and `currentItem` are lent for the call; `status` may be null when memory runs
// out. The callback may cancel and unschedule the operation, and release it in the last call.
typedef void (*FSPathFileOperationStatusProcPtr)(FSFileOperationRef operation,
                                                 char const* currentItem,
                                                 FSFileOperationStage stage, OSStatus error,
                                                 CFDictionaryRef status, void* info);

// An operation that does nothing yet, or null when memory runs out. Released while it works, it is
// cancelled first: the last release returns when the work is undone, and no callback comes any
// more.
CF_INSIDE FSFileOperationRef FSFileOperationCreate(CFAllocatorRef allocator);

// Attaches the operation to the run loop of the calling thread, in kCFRunLoopDefaultMode. paramErr
// where one of them is null or another, or the operation has been attached before.
CF_INSIDE OSStatus FSFileOperationScheduleWithRunLoop(FSFileOperationRef operation,
                                                      CFRunLoopRef runLoop, CFRunLoopMode mode);

// Takes the operation from the run loop: no callback comes any more. An operation at work waits for
// its next report in vain then, and does not come to its end. paramErr where it is not attached
// there. By itself the operation leaves nothing on the run loop when it is over.
CF_INSIDE OSStatus FSFileOperationUnscheduleFromRunLoop(FSFileOperationRef operation,
                                                        CFRunLoopRef runLoop, CFRunLoopMode mode);

// Starts to copy the file `sourcePath` to the name `destName` in the folder `destFolderPath`. Paths
// are UTF-8, and a relative one counts from the working directory of this moment; a name is one
// component of a path, in which nothing changes places.
//
// The destination appears whole or not at all, also where the process is killed: it has no name, or
// a hidden one (".NAME.quillmere-XXXXXX.part"), until it is complete, and then gets its own in one
// step. What is not complete is taken away on a failure and a cancel. Bytes, permissions, times,
// extended attributes and holes are those of the source; attributes of a kind that the
// destination's volume cannot hold, or that this user may not set, are left out. The owner is the
// user of the process. A link as source stands for what it leads to. The data is not forced out to
// the disk: after a loss of power a fresh copy may be missing or short, like any file just written.
//
// With kFSFileOperationOverwrite an entry that is no directory is replaced, a link itself and not
// what it leads to; until that step it stays as it is. Without, any entry of that name, also one
// that comes into being meanwhile, makes it fail with dupFNErr.
//
// paramErr, and nothing is begun, where an argument is null, the interval is not a number, or the
// operation is not scheduled or has been started before; bdNamErr for a name that no entry can
// have; tmfoErr where no thread can be started. All else comes as the callback's error: fnfErr,
// dirNFErr, permErr, wPrErr, dskFulErr, ioErr as the system refuses, opWrErr for a source that is
// no regular file or a directory in the destination's place, dupFNErr also where source and
// destination are one file, by whatever names, eofErr where the source became shorter while it was
// read. Nothing blocks on the kind of the source.
CF_INSIDE OSStatus FSPathCopyObjectAsync(FSFileOperationRef operation, char const* sourcePath,
                                         char const* destFolderPath, CFStringRef destName,
                                         OptionBits flags,
                                         FSPathFileOperationStatusProcPtr callback,
                                         CFTimeInterval interval,
                                         FSFileOperationClientContext* context);

// Starts to move the file, by the same rules, but that a link is itself moved. Within a volume that
// is one step of the system, with one report of all bytes done just before it. Across volumes it is
// a copy, with the owner too where that is allowed, after which the source is deleted. Where that
// is refused, or the source has changed meanwhile (fBsyErr), the move has failed: the copy goes and
// an old destination comes back. Only on volumes that cannot swap two names is it the source and
// the new destination that remain.
CF_INSIDE OSStatus FSPathMoveObjectAsync(FSFileOperationRef operation, char const* sourcePath,
                                         char const* destFolderPath, CFStringRef destName,
                                         OptionBits flags,
                                         FSPathFileOperationStatusProcPtr callback,
                                         CFTimeInterval interval,
                                         FSFileOperationClientContext* context);

// Stops the work within the next megabyte; the callback still comes once, with userCanceledErr,
// unless the destination stands already. May be called from any thread that holds a reference, and
// more than once; an operation that is over ignores it. paramErr for null.
CF_INSIDE OSStatus FSFileOperationCancel(FSFileOperationRef operation);
