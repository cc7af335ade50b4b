#pragma once

// Trees of counted nodes. A tree belongs to one thread at a time, for reading too.

#include <CoreFoundation/CFBase.h>

typedef struct __CFTree* CFTreeRef;

// Makes `newChild`, which must not stand in any tree yet, the last child of `tree`, which retains
// it, and which must not come from a document. Takes constant time and never fails. Does nothing
// where `tree` comes from a document and is not an element of it, or its top.
CF_INSIDE void CFTreeAppendChild(CFTreeRef tree, CFTreeRef newChild);

// The number of children.
CF_INSIDE CFIndex CFTreeGetChildCount(CFTreeRef tree);

// The child at `index`, lent; null if there is none. Asked one after the other, from the first, the
// children take constant time each.
CF_INSIDE CFTreeRef CFTreeGetChildAtIndex(CFTreeRef tree, CFIndex index);
