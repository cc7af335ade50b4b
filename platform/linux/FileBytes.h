#pragma once

// What makes up the inside of a file: its bytes with their holes, and its attributes.

#include <CoreFoundation/CFBase.h>
#include <sys/stat.h>

#include "platform/linux/FileCopy.h"

// Copies as many bytes as `facts` tell of the source; the target is empty. Holes stay holes. eofErr
// where the source ends before.
OSStatus CopyBytes(int source, int target, struct stat const& facts, CopyMeans const& means,
                   CopyObserver* observer);

// Gives the target the extended attributes, permissions and times of the source, and its owner with
// `withOwner`. What the target's volume cannot hold or this user may not set is left out; only a
// lack of space is a failure.
OSStatus CopyAttributes(int source, int target, struct stat const& facts, bool withOwner);
