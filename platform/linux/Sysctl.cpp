#include <sched.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

int sysctlbyname(char const* name, void* oldp, std::size_t* oldlenp, void* newp, std::size_t) {
  if (newp != nullptr) return Fail(EPERM);
  if (name == nullptr || std::strcmp(name, "hw.activecpu") != 0) return Fail(ENOENT);
  // Those of the process are those of its first thread. Of more than fit into the set, all count.
  cpu_set_t processors;
  int const count = sched_getaffinity(getpid(), sizeof processors, &processors) == 0
                        ? CPU_COUNT(&processors)
                        : static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
  if (oldlenp == nullptr) return Fail(EFAULT);
  if (oldp != nullptr) {
    if (*oldlenp < sizeof count) return Fail(ENOMEM);
    std::memcpy(oldp, &count, sizeof count);
  }
  *oldlenp = sizeof count;
  return 0;
}
