#pragma once

// Which disk a volume lies on. All may be called from any thread.

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFURL.h>

typedef struct __DASession* DASessionRef;
typedef struct __DADisk* DADiskRef;

// A session, in which disks are looked up; null when memory runs out.
CF_INSIDE DASessionRef DASessionCreate(CFAllocatorRef allocator);

// The disk under the volume whose mount point `path` names, also where it is no device; null where
// no volume is mounted there, for a null argument, or when memory runs out. It is what it is at the
// moment and does not follow later changes.
CF_INSIDE DADiskRef DADiskCreateFromVolumePath(CFAllocatorRef allocator, DASessionRef session,
                                               CFURLRef path);

// The kernel's name of the device, such as "sda1", in UTF-8, lent for the life of `disk`. Null for
// what is no block device: memory, network, another file system.
CF_INSIDE char const* DADiskGetBSDName(DADiskRef disk);
