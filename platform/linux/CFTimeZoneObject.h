#pragma once

#include <CoreFoundation/CFTimeZone.h>

#include <array>
#include <atomic>
#include <cstdint>

#include "platform/linux/CFObject.h"
#include "platform/linux/Handles.h"

// A zone of one offset, or one of GLib's. Seconds count from 1970, as GLib has them.
struct __CFTimeZone final : CFObject {
  explicit __CFTimeZone(std::int32_t offset) : fixedOffset(offset) {}
  explicit __CFTimeZone(TimeZoneHandle&& zone) : rules(std::move(zone)) {}

  // The seconds to add to the time in Greenwich at second `utc`.
  std::int64_t OffsetAt(std::int64_t utc) const;

  // The second in Greenwich at which the zone's clocks show second `local`.
  std::int64_t ToUtc(std::int64_t local) const;

  TimeZoneHandle const rules;
  std::int32_t const fixedOffset = 0;

  // GLib searches its table from the start, which takes half a microsecond. So the spans of time in
  // which nothing changes are remembered, each in a word of its number and its offset.
  mutable std::array<std::atomic<std::uint64_t>, 16> spans = {};
};
