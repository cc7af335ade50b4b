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
typedef SInt16 FSVolumeRefNum;
typedef UInt32 FSCatalogInfoBitmap;
typedef UInt32 FSIteratorFlags;
typedef UInt32 OptionBits;
typedef UInt32 TextEncoding;
typedef unsigned long ByteCount;
typedef unsigned long ItemCount;
typedef struct __FSIterator* FSIterator;
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
  Boolean isFile;  // whether a look at the entry has found a regular file
};

// A moment: seconds since the start of 1904, UTC, of which `highSeconds` holds the bits above 32,
// and 65536ths of a second. All zero where there is no date.
struct UTCDateTime {
  UInt16 highSeconds;
  UInt32 lowSeconds;
  UInt16 fraction;
};

// What is known of an entry, each field by the bit that asks for it.
struct FSCatalogInfo {
  UInt16 nodeFlags;
  FSVolumeRefNum volume;
  UTCDateTime createDate;
  UTCDateTime contentModDate;
  UInt64 dataLogicalSize;
  UInt64 dataPhysicalSize;
};

enum : FSCatalogInfoBitmap {
  kFSCatInfoNone = 0x0000,
  kFSCatInfoNodeFlags = 0x0002,
  kFSCatInfoVolume = 0x0004,
  kFSCatInfoCreateDate = 0x0020,
  kFSCatInfoContentMod = 0x0040,
  kFSCatInfoDataSizes = 0x4000  // both sizes
};

// The bit of `nodeFlags` that tells a directory; a symbolic link never has it.
enum : UInt16 { kFSNodeIsDirectoryMask = 0x0010 };

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

// How a path is resolved: the last of its links is followed, or stands for itself.
enum : OptionBits { kFSPathMakeRefDefaultOptions = 0, kFSPathMakeRefDoNotFollowLeafSymlink = 1 };

// FSPathMakeRef, which with kFSPathMakeRefDoNotFollowLeafSymlink refers to a symbolic link at the
// end of the path itself, wherever it leads, and says that it is no directory. That is so behind a
// slash too, but there a link that leads to no directory is dirNFErr. Links on the way are
// followed. Any other option is paramErr.
CF_INSIDE OSStatus FSPathMakeRefWithOptions(UInt8 const* path, OptionBits options, FSRef* ref,
                                            Boolean* isDirectory);

// Tells of an entry, of a symbolic link itself, what `whichInfo` asks for; fields that it does not
// ask for are left alone. `outName`, `fsSpec` and `parentRef` are null and `whichInfo` holds no bit
// that is not listed here, else paramErr; `catalogInfo` may be null for kFSCatInfoNone alone. The
// sizes are the bytes that a file holds and those that it takes up on the disk, 0 for an entry of
// another kind. A file system that does not keep the date of creation gives none. Fails with fnfErr
// for an entry that is gone, nsvErr where its volume cannot be told.
CF_INSIDE OSErr FSGetCatalogInfo(FSRef const* ref, FSCatalogInfoBitmap whichInfo,
                                 FSCatalogInfo* catalogInfo, HFSUniStr255* outName, FSSpec* fsSpec,
                                 FSRef* parentRef);

// Deletes the entry: a directory that is empty, an entry of any other kind, and of a symbolic link
// the link. Fails with fnfErr for an entry that is gone, fBsyErr for a directory that is not empty
// or on which a volume is mounted, permErr or wPrErr where the system refuses.
CF_INSIDE OSErr FSDeleteObject(FSRef const* ref);

// Gives the entry, of a symbolic link the link itself, another name in its folder. An entry that
// has the name already survives: dupFNErr, at once with the check. To an entry's own name nothing
// happens, with success. `textEncodingHint` is ignored. `newRef` may be null, or `ref` itself.
// Fails with bdNamErr for names as FSCreateFileUnicode does, fnfErr for an entry that is gone,
// fBsyErr for one on which a volume is mounted, permErr or wPrErr where the system refuses. On a
// file system that cannot rename without replacing, the name is taken first by an empty entry,
// which the renaming then replaces: others see it for that moment.
CF_INSIDE OSErr FSRenameUnicode(FSRef const* ref, UniCharCount nameLength, UniChar const* name,
                                TextEncoding textEncodingHint, FSRef* newRef);

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

// Creates an empty directory in the directory `parentRef`, with the rights that the process gives
// new directories. `newDirID` is null, else paramErr; the rest is as for FSCreateFileUnicode.
CF_INSIDE OSErr FSCreateDirectoryUnicode(FSRef const* parentRef, UniCharCount nameLength,
                                         UniChar const* name, FSCatalogInfoBitmap whichInfo,
                                         FSCatalogInfo const* catalogInfo, FSRef* newRef,
                                         FSSpec* newSpec, UInt32* newDirID);

// Goes through the entries of a directory itself, not of those beneath it.
enum : FSIteratorFlags { kFSIterateFlat = 0 };

// Opens an iterator, to be let go with FSCloseIterator; it holds one descriptor and belongs to one
// thread at a time. `iteratorFlags` is kFSIterateFlat, else paramErr. Fails with fnfErr where the
// directory is gone, dirNFErr where it is none, permErr where it may not be read, tmfoErr where no
// descriptor is left, memFullErr where no memory is.
CF_INSIDE OSErr FSOpenIterator(FSRef const* container, FSIteratorFlags iteratorFlags,
                               FSIterator* iterator);

// Gives the next entries, at most `maximumObjects`, at least 1, in the order of the file system;
// `actualObjects` receives their number in every case. "." and ".." are never among them, nor is an
// entry whose name is no valid UTF-8. Entries that are made or deleted meanwhile may be left out or
// given. errFSNoMoreItems once the directory has ended, also along with its last entries; another
// failure likewise comes along with what was read before. `whichInfo` is kFSCatInfoNone or
// kFSCatInfoNodeFlags and `refs` and `specs` are null, else paramErr. `catalogInfos` and `names`
// are of `maximumObjects`, and each may be null if it is not asked for. `containerChanged`, which
// may be null, receives false.
CF_INSIDE OSErr FSGetCatalogInfoBulk(FSIterator iterator, ItemCount maximumObjects,
                                     ItemCount* actualObjects, Boolean* containerChanged,
                                     FSCatalogInfoBitmap whichInfo, FSCatalogInfo* catalogInfos,
                                     FSRef* refs, FSSpec* specs, HFSUniStr255* names);

// Lets the iterator go. paramErr for null.
CF_INSIDE OSErr FSCloseIterator(FSIterator iterator);

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
// What goes to the very end, fsFromLEOF and 0, is put behind whatever stands there as it is
// written: of two writers, also of two processes, neither writes over the other. (Not on a network
// volume.) permErr where it is not open for writing, dskFulErr where no more fits. `actualCount`
// (may be null) receives the number of bytes written in every case; fewer than asked for come with
// a failure status.
CF_INSIDE OSErr FSWriteFork(FSIORefNum forkRefNum, UInt16 positionMode, SInt64 positionOffset,
                            ByteCount requestCount, void const* buffer, ByteCount* actualCount);
