#pragma once

// A span of bytes of a stream, or of units of a string.
struct _CURange {
  unsigned long long location;
  unsigned long long length;
};

// The location of a range that is none: of text that was not found, for one.
constexpr unsigned long long CURange_NoLocation = 0x7FFFFFFFFFFFFFFFull;
