// The kernel hands each call of the watched thread to the thread that watches, which lets it go on
// or answers in the kernel's place.

#include "tests/support/FailingSystemCall.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <future>
#include <iterator>
#include <thread>
#include <vector>

namespace {

// A set of errors, a bit for each.
constexpr unsigned BitOf(int error) { return 1u << error; }

constexpr unsigned kIO = BitOf(EIO), kSpace = BitOf(ENOSPC), kDenied = BitOf(EACCES),
                   kInterrupted = BitOf(EINTR), kDescriptors = BitOf(EMFILE),
                   kMissing = BitOf(ENOENT);
constexpr unsigned kMoving = kIO | kInterrupted, kWriting = kMoving | kSpace,
                   kMarking = kIO | kSpace | kDenied, kLooking = kIO | kDenied | kMissing,
                   kNaming = kLooking | kSpace;

struct Call {
  int number;
  char const* name;
  unsigned errors;
  bool takesDescriptor = false;  // of which those of pipes and events are left alone
};

constexpr Call kCalls[] = {
    {SYS_openat, "openat", kNaming | kInterrupted | kDescriptors},
    {SYS_close, "close", kWriting, true},
    {SYS_pipe2, "pipe2", kDescriptors},
    {SYS_read, "read", kMoving, true},
    {SYS_readv, "readv", kMoving, true},
    {SYS_pread64, "pread", kMoving, true},
    {SYS_getdents64, "getdents64", kIO | kMissing, true},
    {SYS_write, "write", kWriting, true},
    {SYS_writev, "writev", kWriting, true},
    {SYS_pwrite64, "pwrite", kWriting, true},
    {SYS_pwritev2, "pwritev2", kWriting, true},
    {SYS_copy_file_range, "copy_file_range", kWriting},
    {SYS_splice, "splice", kWriting},
    {SYS_ftruncate, "ftruncate", kWriting, true},
    {SYS_ioctl, "ioctl", kIO | kSpace, true},
    {SYS_lseek, "lseek", kIO, true},
    {SYS_newfstatat, "fstatat", kLooking},
    {SYS_fstat, "fstat", kIO, true},
    {SYS_statx, "statx", kLooking},
    {SYS_statfs, "statfs", kLooking},
    {SYS_fstatfs, "fstatfs", kIO, true},
    {SYS_faccessat, "faccessat", kLooking},
    {SYS_readlinkat, "readlinkat", kLooking},
    {SYS_fchmod, "fchmod", kMarking, true},
    {SYS_fchown, "fchown", kMarking, true},
    {SYS_utimensat, "utimensat", kMarking},
    {SYS_flistxattr, "flistxattr", kIO, true},
    {SYS_fgetxattr, "fgetxattr", kIO, true},
    {SYS_fsetxattr, "fsetxattr", kMarking, true},
    {SYS_renameat, "renameat", kNaming},
    {SYS_renameat2, "renameat2", kNaming},
    {SYS_linkat, "linkat", kNaming},
    {SYS_symlinkat, "symlinkat", kNaming},
    {SYS_mkdirat, "mkdirat", kNaming},
    {SYS_unlinkat, "unlink", kLooking},
// What the C library calls where the processor's list of calls still has them.
#ifdef SYS_unlink
    {SYS_access, "access", kLooking},
    {SYS_readlink, "readlink", kLooking},
    {SYS_rename, "rename", kNaming},
    {SYS_mkdir, "mkdir", kNaming},
    {SYS_unlink, "unlink", kLooking},
    {SYS_rmdir, "rmdir", kLooking},
#endif
};

// For this thread and those that it makes. The descriptor of what it does, or -1.
int WatchThisThread() {
  constexpr std::size_t kCount = std::size(kCalls);
  static_assert(kCount < 255, "a jump goes no further");
  std::vector<sock_filter> steps = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (std::size_t i = 0; i < kCount; ++i) {
    sock_filter const step =
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(kCalls[i].number),
                 static_cast<unsigned char>(kCount - i), 0);
    steps.push_back(step);
  }
  steps.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  steps.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  sock_fprog const program = {static_cast<unsigned short>(steps.size()), steps.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
  return static_cast<int>(
      syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

// By number, here and below: to the thread sanitizer a descriptor is a thing that threads hand on.
bool IsOfFile(int descriptor) {
  struct stat facts;
  return syscall(SYS_fstat, descriptor, &facts) == 0 &&
         (S_ISREG(facts.st_mode) || S_ISDIR(facts.st_mode));
}

// Whether this call is to fail.
bool Fails(seccomp_data const& data, CallFault const& fault, CallTrace* trace) {
  auto const call = std::find_if(std::begin(kCalls), std::end(kCalls),
                                 [&](Call const& each) { return each.number == data.nr; });
  bool const canFail = fault.error == 0 || (call->errors & BitOf(fault.error)) != 0;
  if (!canFail || (call->takesDescriptor && !IsOfFile(static_cast<int>(data.args[0])))) {
    return false;
  }
  ++trace->calls;
  if (fault.error == 0) return false;
  if (fault.isLasting ? trace->calls < fault.nth : trace->calls != fault.nth) return false;
  ++trace->failed;
  trace->lastFailed = call->name;
  if (std::strcmp(call->name, "unlink") == 0) trace->failedToDelete = true;
  return true;
}

// Answers one call; false once no watched thread is left.
bool Answer(int listener, CallFault const& fault, CallTrace* trace) {
  pollfd waiting = {listener, POLLIN, 0};
  if (poll(&waiting, 1, -1) < 0) return errno == EINTR;
  if ((waiting.revents & POLLIN) == 0) return false;
  seccomp_notif call = {};
  if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0) return true;
  seccomp_notif_resp answer = {};
  answer.id = call.id;
  if (Fails(call.data, fault, trace)) {
    if (call.data.nr == SYS_close) syscall(SYS_close, static_cast<int>(call.data.args[0]));
    answer.error = -fault.error;
  } else {
    answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
  }
  ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &answer);
  return true;
}

}  // namespace

CallTrace RunWithFault(CallFault const& fault, std::function<void()> const& work) {
  CallTrace trace;
  std::promise<int> watching;
  std::thread watched([&] {
    int const listener = WatchThisThread();
    watching.set_value(listener);
    if (listener >= 0) work();
  });
  int const listener = watching.get_future().get();
  trace.isPossible = listener >= 0;
  while (trace.isPossible && Answer(listener, fault, &trace)) continue;
  watched.join();
  if (trace.isPossible) close(listener);
  return trace;
}
