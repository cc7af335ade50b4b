#include <sched.h>
#include <sys/sysctl.h>

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
  cpu_set_t processors;
  if (sched_getaffinity(0, sizeof processors, &processors) != 0) return -1;
  int const count = CPU_COUNT(&processors);
  if (oldlenp == nullptr) return Fail(EFAULT);
  if (oldp != nullptr) {
    if (*oldlenp < sizeof count) return Fail(ENOMEM);
    std::memcpy(oldp, &count, sizeof count);
  }
  *oldlenp = sizeof count;
  return 0;
}
