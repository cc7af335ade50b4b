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

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <future>
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
};

// Calls that fail with the same errors. Of those that take a descriptor, the ones on pipes and
// events are left alone.
struct Kind {
  unsigned errors;
  bool takesDescriptor;
  std::vector<Call> calls;
};

#define CALL(name) \
  { SYS_##name, #name }

std::vector<Kind> const kKinds = {
    {kNaming | kInterrupted | kDescriptors, false, {CALL(openat)}},
    {kDescriptors, false, {CALL(pipe2)}},
    {kMoving, true, {CALL(read), CALL(readv), CALL(pread64)}},
    {kIO | kMissing, true, {CALL(getdents64)}},
    {kWriting, true, {CALL(close), CALL(write), CALL(writev), CALL(pwrite64), CALL(pwritev2)}},
    {kWriting, true, {CALL(ftruncate)}},
    {kWriting, false, {CALL(copy_file_range), CALL(splice)}},
    {kIO | kSpace, true, {CALL(ioctl)}},
    {kIO, true, {CALL(lseek), CALL(fstat), CALL(fstatfs), CALL(flistxattr), CALL(fgetxattr)}},
    {kMarking, true, {CALL(fchmod), CALL(fchown), CALL(fsetxattr)}},
    {kMarking, false, {CALL(utimensat)}},
    {kLooking, false, {{SYS_newfstatat, "fstatat"}, {SYS_unlinkat, "unlink"}, CALL(statx)}},
    {kLooking, false, {CALL(statfs), CALL(faccessat), CALL(readlinkat)}},
    {kNaming, false, {CALL(renameat), CALL(renameat2), CALL(linkat), CALL(symlinkat)}},
    {kNaming, false, {CALL(mkdirat)}},
// What the C library calls where the processor's list of calls still has them.
#ifdef SYS_unlink
    {kLooking, false, {CALL(access), CALL(readlink), CALL(unlink), CALL(rmdir)}},
    {kNaming, false, {CALL(rename), CALL(mkdir)}},
#endif
};

// For this thread and those that it makes. The descriptor of what it does, or -1.
int WatchThisThread() {
  std::vector<sock_filter> steps = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (Kind const& kind : kKinds) {
    for (Call const& call : kind.calls) {
      auto const number = static_cast<unsigned>(call.number);
      steps.insert(steps.end(), {BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1),
                                 BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF)});
    }
  }
  steps.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
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
  Kind const* kind = nullptr;
  char const* name = "";
  for (Kind const& each : kKinds) {
    for (Call const& call : each.calls) {
      if (call.number == data.nr) kind = &each, name = call.name;
    }
  }
  if (fault.error != 0 && (kind->errors & BitOf(fault.error)) == 0) return false;
  if (kind->takesDescriptor && !IsOfFile(static_cast<int>(data.args[0]))) return false;
  ++trace->calls;
  if (fault.error == 0) return false;
  if (fault.isLasting ? trace->calls < fault.nth : trace->calls != fault.nth) return false;
  ++trace->failed;
  trace->lastFailed = name;
  if (std::strcmp(name, "unlink") == 0) trace->failedToDelete = true;
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

bool DenyCall(unsigned call, unsigned error) {
  sock_filter program[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                           BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  sock_fprog const filter = {4, program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

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
