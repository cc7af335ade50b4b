#pragma once

// Files by reference: entries of the file system, and the open data forks of files.
//
// Every function reports a status, of which 0 is success (MacErrors.h). On failure nothing is
// created, opened or changed, and outputs are left alone unless told otherwise. All may be called
// from any thread; two threads that use one open fork at once must agree between themselves, since
// the mark is the fork's own. A call that the system interrupts is carried on to its end. None of
// them blocks on the kind of an entry: a FIFO or a socket cannot be opened. A null pointer is
// paramErr where nothing else is said, and so are a mode or permission that is not listed here and
// a reference that holds no path.
//
// Where the process is limited in the size of its files, growing beyond the limit is dskFulErr, and
// the system also sends SIGXFSZ, whose default ends the process. Nothing is done about the signal
// here, as that would cost two calls of the system for each transfer: who sets the limit ignores
// it.
//
// Names given as UTF-16 units write "/" for a colon: the two change places on the way to the disk
// and back. Paths given as 8-bit text are UTF-8 and separate by "/" as they stand.

#include <CoreFoundation/CFBase.h>
#include <CoreServices/MacErrors.h>

typedef SInt32 FSIORefNum;
typedef UInt32 FSCatalogInfoBitmap;
typedef unsigned long ByteCount;
struct FSCatalogInfo;
struct FSSpec;

// A name of at most 255 UTF-16 units.
struct HFSUniStr255 {
  UInt16 length;
  UniChar unicode[255];
};

// An existing entry, by its absolute path, which is never a symbolic link unless the reference was
// made so as not to follow one. Plain data: copied by value, nothing to release. It goes stale when
// the entry is moved or deleted; a call on it then fails with fnfErr.
struct FSRef {
  char path[4096];
};

// No catalogue information is asked for or given.
constexpr FSCatalogInfoBitmap kFSCatInfoNone = 0;

// Kinds of opening.
enum : SInt8 { fsCurPerm = 0, fsRdPerm = 1, fsWrPerm = 2, fsRdWrPerm = 3 };

// What an offset counts from: the mark itself, the start, the end, or the mark plus the offset.
enum : UInt16 { fsAtMark = 0, fsFromStart = 1, fsFromLEOF = 2, fsFromMark = 3 };

// Resolves an existing path, of an entry of any kind; a symbolic link at its end is followed, also
// one that a slash follows. A relative path counts from the working directory. `isDirectory` may be
// null. Fails with fnfErr for an entry that does not exist, a link that leads to none or in a
// circle, or a null or empty path, dirNFErr where what stands before a slash is no directory,
// bdNamErr for a path that is too long, also once it is made absolute, permErr where a directory on
// the way may not be searched.
CF_INSIDE OSStatus FSPathMakeRef(UInt8 const* path, FSRef* ref, Boolean* isDirectory);

// Creates an empty file in the directory `parentRef` with the rights that the process gives new
// files. `whichInfo` is kFSCatInfoNone and `catalogInfo` and `newSpec` are null, else paramErr.
// `newRef` may be null, or `parentRef` itself. Fails with dupFNErr where any entry of that name
// exists, a dangling link too; with bdNamErr for a name that is empty, "." or "..", holds an
// unpaired surrogate, a null unit or a colon, or takes more than 255 bytes on the disk, or one that
// makes the path too long: no name is cut; with fnfErr where the parent is gone and dirNFErr where
// it is no directory; with permErr, wPrErr, dskFulErr or tmfoErr where the system refuses.
CF_INSIDE OSErr FSCreateFileUnicode(FSRef const* parentRef, UniCharCount nameLength,
                                    UniChar const* name, FSCatalogInfoBitmap whichInfo,
                                    FSCatalogInfo const* catalogInfo, FSRef* newRef,
                                    FSSpec* newSpec);

// The name of the data fork: the empty name. Only `length` is set.
CF_INSIDE OSErr FSGetDataForkName(HFSUniStr255* forkName);

// Opens the data fork (any other name: paramErr) with its mark at the start. fsCurPerm opens for
// reading and writing where that is allowed, else for reading. Regular files and devices can be
// opened; a device that has nothing to give or take at the moment does not block a transfer but
// makes it fBsyErr. `forkRefNum` receives a small positive number, never 0. The descriptor
// underneath is not inherited by programs that the process starts. Fails with opWrErr for a
// directory, FIFO, socket or link, permErr or wPrErr where that permission is refused, fBsyErr
// where the file is a running program, tmfoErr where no descriptor is left, memFullErr where no
// memory is.
CF_INSIDE OSErr FSOpenFork(FSRef const* ref, UniCharCount forkNameLength, UniChar const* forkName,
                           SInt8 permissions, FSIORefNum* forkRefNum);

// Closes the fork. The number may be given out again at once, and is not open any more whatever the
// status: that may also be a failure of earlier writing which the system tells only now. rfNumErr
// where the number is not open, as from every call below.
CF_INSIDE OSErr FSCloseFork(FSIORefNum forkRefNum);

// The present length in bytes, as the file system has it, or the capacity of a block device.
CF_INSIDE OSErr FSGetForkSize(FSIORefNum forkRefNum, SInt64* forkSize);

// Sets the length to `positionOffset` counted by `positionMode`; new bytes read as zero. A mark
// that lies behind the new end moves to it. posErr for a negative length, permErr where the fork is
// not open for writing, dskFulErr for a length that cannot be, paramErr for a device, whose length
// is fixed.
CF_INSIDE OSErr FSSetForkSize(FSIORefNum forkRefNum, UInt16 positionMode, SInt64 positionOffset);

// The mark, in bytes from the start.
CF_INSIDE OSErr FSGetForkPosition(FSIORefNum forkRefNum, SInt64* position);

// Sets the mark, which may lie behind the end. posErr where it would lie before the start or where
// 64 bits cannot count it, as in every call that takes a place.
CF_INSIDE OSErr FSSetForkPosition(FSIORefNum forkRefNum, UInt16 positionMode,
                                  SInt64 positionOffset);

// Reads `requestCount` bytes at the place that mode and offset name, and sets the mark behind what
// was read, also where less was read than asked for. eofErr where the fork ended first, permErr
// where it is not open for reading. `actualCount` (may be null) receives the number of bytes read
// in every case.
CF_INSIDE OSErr FSReadFork(FSIORefNum forkRefNum, UInt16 positionMode, SInt64 positionOffset,
                           ByteCount requestCount, void* buffer, ByteCount* actualCount);

// Writes `requestCount` bytes at the place that mode and offset name, and sets the mark behind what
// was written, also where less was written than asked for. A fork that is not long enough grows.
// permErr where it is not open for writing, dskFulErr where no more fits. `actualCount` (may be
// null) receives the number of bytes written in every case; fewer than asked for come with a
// failure status.
CF_INSIDE OSErr FSWriteFork(FSIORefNum forkRefNum, UInt16 positionMode, SInt64 positionOffset,
                            ByteCount requestCount, void const* buffer, ByteCount* actualCount);
