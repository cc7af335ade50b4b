#include <mach/mach_time.h>
#include <time.h>

kern_return_t mach_timebase_info(mach_timebase_info_t info) {
  *info = {1, 1};
  return 0;
}

std::uint64_t mach_absolute_time() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::uint64_t const ticks =
      static_cast<std::uint64_t>(now.tv_sec) * 1000000000 + static_cast<std::uint64_t>(now.tv_nsec);
  // Where the clock starts with a container, it can read 0.
  return ticks == 0 ? 1 : ticks;
}
