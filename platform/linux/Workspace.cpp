// The trash is that of the desktop, as GIO knows it. GIO works on a thread of its own, and a source
// on the run loop of the caller waits for it there. The application support folder is the user's
// data folder by the desktop's convention.

#include <CoreFoundation/CFRunLoop.h>
#include <CoreServices/Files.h>
#include <Workspace.h>
#include <gio/gio.h>
#include <pwd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/CFRunLoopObject.h"
#include "platform/linux/FileNames.h"
#include "platform/linux/Handles.h"

namespace {

// The numbers of failures are those that the platform uses for files.
enum : CFIndex {
  kNoSuchFile = 4,
  kUnknownFailure = 512,
  kNoPermission = 513,
  kNoSpace = 640,
  kReadOnlyVolume = 642,
  kNoTrash = 3328
};

CFIndex CodeOf(GError const& error) {
  if (error.domain != G_IO_ERROR) return kUnknownFailure;
  switch (error.code) {
    case G_IO_ERROR_CANCELLED:
      return kWorkspaceUserCancelled;
    case G_IO_ERROR_NOT_FOUND:
      return kNoSuchFile;
    case G_IO_ERROR_PERMISSION_DENIED:
      return kNoPermission;
    case G_IO_ERROR_NO_SPACE:
      return kNoSpace;
    case G_IO_ERROR_READ_ONLY:
      return kReadOnlyVolume;
    case G_IO_ERROR_NOT_SUPPORTED:
      return kNoTrash;
    default:
      return kUnknownFailure;
  }
}

// What the worker and the source share, each holding the source.
struct Recycling {
  FileHandle file;
  WorkspaceHandler handler;
  void* context;
  bool keepsRunLoop = false;
  std::atomic<bool> done{false};
  CFIndex error = 0;
  std::thread worker{};
};

struct RecyclingSource {
  GSource base;
  Recycling* recycling;
};

Recycling* RecyclingOf(GSource* source) {
  return reinterpret_cast<RecyclingSource*>(source)->recycling;
}

// A run loop takes a source that waits for no time to be none.
void WaitLong(GSource* source) {
  constexpr gint64 kHour = gint64{3600} * G_USEC_PER_SEC;
  g_source_set_ready_time(source, g_get_monotonic_time() + kHour);
}

gboolean Dispatch(GSource* source, GSourceFunc, gpointer) {
  Recycling* const recycling = RecyclingOf(source);
  if (!recycling->done.load(std::memory_order_acquire)) {
    WaitLong(source);
    return G_SOURCE_CONTINUE;
  }
  recycling->worker.join();
  if (recycling->keepsRunLoop) LetRunLoopGo(g_source_get_context(source));
  recycling->handler(recycling->error, recycling->context);
  return G_SOURCE_REMOVE;
}

// Where the run loop has gone before the end, the worker is the last to know the source.
void Finalize(GSource* source) {
  Recycling* const recycling = RecyclingOf(source);
  if (recycling->worker.joinable()) recycling->worker.detach();
  delete recycling;
}

GSourceFuncs g_recyclingFuncs = {nullptr, nullptr, Dispatch, Finalize, nullptr, nullptr};

void Work(SourceHandle const& source) {
  Recycling* const recycling = RecyclingOf(source.Get());
  GError* failure = nullptr;
  if (g_file_trash(recycling->file.Get(), nullptr, &failure) == FALSE) {
    ErrorHandle const error(failure);
    recycling->error = error ? CodeOf(*error.Get()) : CFIndex{kUnknownFailure};
  }
  recycling->done.store(true, std::memory_order_release);
  g_source_set_ready_time(source.Get(), 0);
}

// The entry, for GIO. Its folder is resolved here: GIO takes "link/.." for nothing, and would find
// another entry than the system does. Null, with `*error` set, where that fails.
FileHandle Locate(char const* path, CFIndex* error) {
  FSRef ref;
  *error = kNoSuchFile;
  if (FSPathMakeRefWithOptions(reinterpret_cast<UInt8 const*>(path),
                               kFSPathMakeRefDoNotFollowLeafSymlink, &ref, nullptr) != noErr) {
    return FileHandle();
  }
  char* const slash = std::strrchr(ref.path, '/');
  FSRef entry;
  *slash = '\0';
  if (realpath(slash == ref.path ? "/" : ref.path, entry.path) == nullptr) return FileHandle();
  std::size_t length = std::strlen(entry.path);
  *error = kUnknownFailure;
  if (AppendToPath(&entry, &length, slash + 1, std::strlen(slash + 1)) != noErr) {
    return FileHandle();
  }
  return FileHandle(g_vfs_get_file_for_path(g_vfs_get_local(), entry.path));
}

// Sets the worker going; false where memory or threads run out.
bool Start(FileHandle file, WorkspaceHandler handler, void* context) {
  CFRunLoopRef const runLoop = CFRunLoopGetCurrent();
  std::unique_ptr<Recycling> recycling(new (std::nothrow)
                                           Recycling{std::move(file), handler, context});
  if (runLoop == nullptr || !recycling) return false;
  SourceHandle const source(g_source_new(&g_recyclingFuncs, sizeof(RecyclingSource)));
  reinterpret_cast<RecyclingSource*>(source.Get())->recycling = recycling.release();
  WaitLong(source.Get());
  g_source_attach(source.Get(), runLoop->context);
  bool const keeps = KeepRunLoop(runLoop);
  RecyclingOf(source.Get())->keepsRunLoop = keeps;
  try {
    RecyclingOf(source.Get())->worker =
        std::thread([shared = SourceHandle(g_source_ref(source.Get()))] { Work(shared); });
    return true;
  } catch (std::exception const&) {
    g_source_destroy(source.Get());
    if (keeps) LetRunLoopGo(runLoop->context);
    return false;
  }
}

// An absolute folder that the environment names, or nothing: by the convention a relative one is
// to be ignored.
std::string AbsoluteVariable(char const* name) {
  char const* const value = std::getenv(name);
  return value != nullptr && *value == '/' ? value : "";
}

// The user's home by the password database; empty where that knows none.
std::string HomeOfUser() {
  std::vector<char> buffer(1024);
  passwd entry = {};
  passwd* found = nullptr;
  while (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
    buffer.resize(2 * buffer.size());
  }
  return found != nullptr && found->pw_dir != nullptr && *found->pw_dir == '/' ? found->pw_dir : "";
}

std::string DataFolder() {
  std::string folder = AbsoluteVariable("XDG_DATA_HOME");
  if (!folder.empty()) return folder;
  std::string home = AbsoluteVariable("HOME");
  if (home.empty()) home = HomeOfUser();
  return home.empty() ? home : home + "/.local/share";
}

}  // namespace

char* WorkspaceCopyApplicationSupportPath() {
  try {
    std::string const folder = DataFolder();
    return folder.empty() ? nullptr : strdup(folder.c_str());
  } catch (std::bad_alloc const&) {
    return nullptr;
  }
}

void WorkspaceRecyclePath(char const* path, WorkspaceHandler handler, void* context) {
  CFIndex error = 0;
  FileHandle file = Locate(path, &error);
  if (!file) return handler(error, context);
  if (!Start(std::move(file), handler, context)) handler(kUnknownFailure, context);
}
