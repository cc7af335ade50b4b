#pragma once

// The system's tick counter.

#include <cstdint>

typedef int kern_return_t;

// Ticks times `numer`, divided by `denom`, are nanoseconds.
struct mach_timebase_info {
  std::uint32_t numer;
  std::uint32_t denom;
};
typedef struct mach_timebase_info* mach_timebase_info_t;
typedef struct mach_timebase_info mach_timebase_info_data_t;

// Stores the ratio, which is the same for the life of the process and 1 to 1 here, and returns 0.
// `info` must not be null. Any thread may call it.
extern "C" kern_return_t mach_timebase_info(mach_timebase_info_t info);

// The ticks since some moment before the process, of no meaning across restarts of the machine: a
// number above 0, never less than one before, and not changed by setting the clock. The time in
// which the machine is suspended does not count. Any thread may call it.
extern "C" std::uint64_t mach_absolute_time();
