#pragma once

// The services of the user's desktop, of which the platform has no interface in C.

#include <CoreFoundation/CFBase.h>

// The error by which a user declines what was asked for.
enum : CFIndex { kWorkspaceUserCancelled = 3072 };

// Told once of the end: 0 for success, kWorkspaceUserCancelled, or any other number for a failure.
typedef void (*WorkspaceHandler)(CFIndex error, void* context);

// Moves the entry at `path`, of a symbolic link the link itself, to the user's trash, where it can
// be restored from. Returns before that is done; the calling thread must then turn its run loop in
// the default mode, from which `handler` is called with `context`, or from this call itself where
// the failure is known at once. `path` is UTF-8 text as for FSPathMakeRef and need not live on.
// Fails for a null or missing path, on a volume that has no trash, and where the system refuses;
// the entry then stays in its place. May be called from any thread.
extern "C" void WorkspaceRecyclePath(char const* path, WorkspaceHandler handler, void* context);

// The folder under which applications keep files of their own for the user, which need not exist
// yet: UTF-8 text from malloc, which the caller frees. Null where the user has no such folder, and
// where memory runs out. May be called from any thread.
extern "C" char* WorkspaceCopyApplicationSupportPath(void);
