#pragma once

// The system's error numbers as statuses of the file calls.

#include <CoreFoundation/CFBase.h>
#include <CoreServices/MacErrors.h>

#include <cerrno>

// The status for an `errno` other than 0; ioErr where none fits better.
OSErr StatusFromErrno(int error) noexcept;

// Makes a call that gives -1 on failure again for as long as signals interrupt it.
template <typename Call>
auto Uninterrupted(Call call) noexcept {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}
