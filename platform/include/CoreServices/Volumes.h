#pragma once

// Mounted volumes by number: where they are mounted, what they are called, how large they are. The
// number is what FSGetCatalogInfo gives. It is never 0, stays with the volume for the life of the
// process and is given to no other.

#include <CoreServices/Files.h>

typedef UInt32 FSVolumeInfoBitmap;

// What FSGetVolumeInfo is asked for: nothing but name and root, or the sizes too.
enum : FSVolumeInfoBitmap { kFSVolInfoNone = 0x0000, kFSVolInfoSizes = 0x0040 };

// In bytes; `freeBytes` is what this user may still fill, without what the system keeps back.
struct FSVolumeInfo {
  UInt64 totalBytes;
  UInt64 freeBytes;
};

// Tells of the volume with the number `volume`, as it is at the moment. `volumeIndex` is 0 and
// `actualVolume` is null, else paramErr. `whichInfo` is kFSVolInfoNone or kFSVolInfoSizes, for
// which `info` must not be null. `volumeName` and `rootDirectory` may be null. The name is the
// label of the file system, or where it has none the last component of the mount point, "/" for the
// root; it is a text to show and no name of an entry, so colons and slashes stand in it as they
// are. `rootDirectory` receives the mount point. Fails with nsvErr where no volume has the number,
// its volume is no longer mounted or another one is mounted over it, memFullErr where memory runs
// out, bdNamErr for a mount point that is too long, or as the system refuses to measure the volume.
// May be called from any thread.
CF_INSIDE OSErr FSGetVolumeInfo(FSVolumeRefNum volume, ItemCount volumeIndex,
                                FSVolumeRefNum* actualVolume, FSVolumeInfoBitmap whichInfo,
                                FSVolumeInfo* info, HFSUniStr255* volumeName, FSRef* rootDirectory);
