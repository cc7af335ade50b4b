#include <CoreFoundation/CFTimeZone.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "platform/linux/CFTimeZoneObject.h"

namespace {

constexpr CFTimeInterval kFarthestOffset = 18 * 3600.0;
constexpr char kLocalTime[] = "/etc/localtime";

// The calendar repeats itself after 400 years, weekdays included, and so does each zone's rule.
constexpr std::int64_t kCycle = 146097 * std::int64_t{86400};
// GLib knows a zone's rule up to its year 2999.
constexpr std::int64_t kRulesEnd = 32440608000;  // the beginning of 2998
// All zones have had their first change by then.
constexpr std::int64_t kRulesBegin = -62167219200;  // the beginning of year 0

// A span is about 18 hours long. Its word holds its number, from 1, then the offset in the low
// bits.
constexpr std::int64_t kSpan = 1 << 16;
constexpr int kOffsetBits = 20;
constexpr std::int64_t kOffsetBias = std::int64_t{1} << (kOffsetBits - 1);

// A second at which the same offset holds, among those that GLib knows.
std::int64_t Equivalent(std::int64_t utc) {
  if (utc >= kRulesEnd) return utc - ((utc - kRulesEnd) / kCycle + 1) * kCycle;
  return std::max(utc, kRulesBegin);
}

int IntervalAt(GTimeZone* rules, std::int64_t utc) {
  return g_time_zone_find_interval(rules, G_TIME_TYPE_UNIVERSAL, utc);
}

// The system's zone and what it was made from. The few of them are kept to the end of the process:
// thus the readers need neither a lock nor a count.
struct SystemZone {
  bool fromVariable;   // TZ, and not the file
  std::string source;  // the text of TZ, or the state of the file
  CFTimeZoneRef zone;
};

std::atomic<SystemZone const*> s_current{nullptr};
std::atomic<std::int64_t> s_nextLook{0};  // when the file is to be looked at again
std::mutex s_mutex;                       // of the making of zones

// Where TZ stands in the environment, or that it does not. It is asked for with every field of
// every date, so a thread remembers what it found for as long as the environment shows no change
// there.
class Variable {
 public:
  // The text of TZ, or null.
  char const* Text() {
    if (environ == nullptr) return nullptr;
    if (environ != m_environment || !StillStands()) Look();
    return m_entry != nullptr ? m_entry + 3 : nullptr;
  }

 private:
  bool StillStands() const {
    if (m_entry != nullptr) return environ[m_place] == m_entry;
    // A variable that is new stands at the end, and one that is gone has drawn the end nearer.
    return environ[m_place] == nullptr && (m_place == 0 || environ[m_place - 1] == m_last);
  }

  void Look() {
    m_environment = environ;
    m_entry = nullptr;
    m_last = nullptr;
    for (m_place = 0; environ[m_place] != nullptr; ++m_place) {
      m_last = environ[m_place];
      if (m_last[0] == 'T' && m_last[1] == 'Z' && m_last[2] == '=') {
        m_entry = m_last;
        return;
      }
    }
  }

  char** m_environment = nullptr;
  std::size_t m_place = 0;        // of TZ, or of the end
  char const* m_entry = nullptr;  // of TZ
  char const* m_last = nullptr;   // before the end
};

std::int64_t MonotonicMilliseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Differs when the link leads elsewhere, or to a file that was replaced.
std::string StateOfFile() {
  char target[4096];
  ssize_t const length = ::readlink(kLocalTime, target, sizeof target);
  std::string state(target, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  struct stat file = {};
  if (::stat(kLocalTime, &file) == 0) {
    char numbers[100];
    std::snprintf(numbers, sizeof numbers, "\n%ju %ju %jd %jd", std::uintmax_t{file.st_dev},
                  std::uintmax_t{file.st_ino}, std::intmax_t{file.st_mtim.tv_sec},
                  std::intmax_t{file.st_mtim.tv_nsec});
    state += numbers;
  }
  return state;
}

// Null stays null.
CFTimeZoneRef KeepForEver(__CFTimeZone* zone) {
  if (zone != nullptr) zone->MakeImmortal();
  return zone;
}

// `variable` is the text of TZ, or null. The zone is never destroyed.
CFTimeZoneRef MakeZone(char const* variable) {
  TimeZoneHandle rules(g_time_zone_new_identifier(variable));
  CFTimeZoneRef const zone = KeepForEver(rules ? MakeCFObject<__CFTimeZone>(0, std::move(rules))
                                               : MakeCFObject<__CFTimeZone>(0, 0));
  if (zone == nullptr) throw std::bad_alloc();
  return zone;
}

SystemZone const& Find(bool fromVariable, std::string const& source) {
  static auto& known = *new std::vector<std::unique_ptr<SystemZone const>>;
  for (auto const& zone : known) {
    if (zone->fromVariable == fromVariable && zone->source == source) return *zone;
  }
  CFTimeZoneRef const zone = MakeZone(fromVariable ? source.c_str() : nullptr);
  known.push_back(std::make_unique<SystemZone const>(SystemZone{fromVariable, source, zone}));
  return *known.back();
}

bool IsFor(SystemZone const* zone, char const* variable) {
  if (zone == nullptr) return false;
  if (variable != nullptr) return zone->fromVariable && zone->source == variable;
  return !zone->fromVariable &&
         MonotonicMilliseconds() < s_nextLook.load(std::memory_order_relaxed);
}

SystemZone const* Renew(char const* variable) {
  std::lock_guard<std::mutex> const guard(s_mutex);
  SystemZone const& zone =
      Find(variable != nullptr, variable != nullptr ? variable : StateOfFile());
  s_nextLook.store(MonotonicMilliseconds() + 1000, std::memory_order_relaxed);
  s_current.store(&zone, std::memory_order_release);
  return &zone;
}

}  // namespace

std::int64_t __CFTimeZone::OffsetAt(std::int64_t utc) const {
  if (!rules) return fixedOffset;
  std::int64_t const time = Equivalent(utc);
  auto const number = static_cast<std::uint64_t>((time - kRulesBegin) / kSpan) + 1;
  std::atomic<std::uint64_t>& word = spans[number % spans.size()];
  std::uint64_t const remembered = word.load(std::memory_order_relaxed);
  if (remembered >> kOffsetBits == number) {
    auto const low = remembered & ((std::uint64_t{1} << kOffsetBits) - 1);
    return static_cast<std::int64_t>(low) - kOffsetBias;
  }
  GTimeZone* const zone = rules.Get();
  std::int64_t const begin = time - (time - kRulesBegin) % kSpan;
  int const interval = IntervalAt(zone, begin);
  if (interval != IntervalAt(zone, begin + kSpan - 1)) {
    return g_time_zone_get_offset(zone, IntervalAt(zone, time));
  }
  std::int64_t const offset = g_time_zone_get_offset(zone, interval);
  word.store(number << kOffsetBits | static_cast<std::uint64_t>(offset + kOffsetBias),
             std::memory_order_relaxed);
  return offset;
}

std::int64_t __CFTimeZone::ToUtc(std::int64_t local) const {
  // No offset reaches a day, but for that of a zone which crossed the date line: there, too, these
  // two stand on either side of a change near `local`.
  constexpr std::int64_t kDay = 86400;
  std::int64_t const byEarlier = local - OffsetAt(local - kDay);
  if (byEarlier + OffsetAt(byEarlier) == local) return byEarlier;
  std::int64_t const byLater = local - OffsetAt(local + kDay);
  return byLater + OffsetAt(byLater) == local ? byLater : byEarlier;
}

CFTimeZoneRef CFTimeZoneCopySystem() {
  thread_local Variable remembered;
  char const* const variable = remembered.Text();
  SystemZone const* zone = s_current.load(std::memory_order_acquire);
  if (!IsFor(zone, variable)) {
    try {
      zone = Renew(variable);
    } catch (std::bad_alloc const&) {
      return nullptr;
    }
  }
  return zone->zone;
}

CFTimeZoneRef CFTimeZoneCreateWithTimeIntervalFromGMT(CFAllocatorRef, CFTimeInterval interval) {
  if (!(interval >= -kFarthestOffset && interval <= kFarthestOffset)) return nullptr;
  if (interval == 0) {
    static CFTimeZoneRef const greenwich = KeepForEver(MakeCFObject<__CFTimeZone>(0, 0));
    return greenwich;
  }
  return MakeCFObject<__CFTimeZone>(0, static_cast<std::int32_t>(interval));
}
