#include "QuillmereLib/core/CULiveObjects.h"

#include <cxxabi.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <typeinfo>

#include "QuillmereLib/core/CUObject.h"

namespace {

// The addresses of the objects that live. Their classes are asked when someone wants to know: while
// CUObject's constructor runs, an object has none yet.
//
// The table comes from the system and not from the heap, so that counting disturbs neither what
// tests see of allocations nor what a sanitizer finds to be leaked. An address stands at its place
// or, where that is taken, at the next free one.
class Registry {
 public:
  void Add(CUObject const* object) {
    std::lock_guard<std::mutex> const lock(m_mutex);
    if (2 * (m_count + 1) > m_size && !Grow()) {
      ++m_missed;
      return;
    }
    Put(object);
    ++m_count;
  }

  // An object that was missed is not there.
  void Remove(CUObject const* object) {
    std::lock_guard<std::mutex> const lock(m_mutex);
    if (m_size == 0) return;
    std::size_t hole = PlaceOf(object);
    while (m_table[hole] != object) {
      if (m_table[hole] == nullptr) return;
      hole = Next(hole);
    }
    --m_count;
    // Whatever was put behind because of it moves up, so that no search ends too early.
    for (std::size_t at = Next(hole); m_table[at] != nullptr; at = Next(at)) {
      std::size_t const wanted = PlaceOf(m_table[at]);
      if (Distance(wanted, at) < Distance(hole, at)) continue;
      m_table[hole] = m_table[at];
      hole = at;
    }
    m_table[hole] = nullptr;
  }

  // Objects stay as long as the lock is held, since none ends without Remove.
  template <class Function>
  void ForEach(Function const& function) {
    std::lock_guard<std::mutex> const lock(m_mutex);
    for (std::size_t at = 0; at < m_size; ++at) {
      if (m_table[at] != nullptr) function(*m_table[at]);
    }
  }

  // How many objects there was no room for.
  std::size_t Missed() {
    std::lock_guard<std::mutex> const lock(m_mutex);
    return m_missed;
  }

 private:
  std::size_t Next(std::size_t at) const { return (at + 1) & (m_size - 1); }
  std::size_t Distance(std::size_t from, std::size_t to) const {
    return (to - from) & (m_size - 1);
  }

  // Fibonacci hashing: addresses differ in the middle bits most.
  std::size_t PlaceOf(CUObject const* object) const {
    auto const address = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(object));
    return static_cast<std::size_t>((address * 0x9E3779B97F4A7C15U) >> 20) & (m_size - 1);
  }

  void Put(CUObject const* object) {
    std::size_t at = PlaceOf(object);
    while (m_table[at] != nullptr) at = Next(at);
    m_table[at] = object;
  }

  bool Grow() {
    std::size_t const oldSize = m_size;
    std::size_t const size = oldSize == 0 ? kFirstSize : 2 * oldSize;
    void* const memory = mmap(nullptr, size * sizeof(void*), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return false;
    CUObject const** const old = m_table;
    m_table = static_cast<CUObject const**>(memory);
    m_size = size;
    for (std::size_t at = 0; at < oldSize; ++at) {
      if (old[at] != nullptr) Put(old[at]);
    }
    if (old != nullptr) munmap(old, oldSize * sizeof(void*));
    return true;
  }

  static constexpr std::size_t kFirstSize = 1 << 12;

  std::mutex m_mutex;
  CUObject const** m_table = nullptr;  // of m_size places, a power of two; null where free
  std::size_t m_size = 0;
  std::size_t m_count = 0;
  std::size_t m_missed = 0;
};

// Ready for objects that static initialisers make, and for those that end after all others.
Registry& LiveObjects() {
  static Registry* const registry = new (std::malloc(sizeof(Registry))) Registry;
  return *registry;
}

std::string ReadableName(char const* encoded) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> const name(
      abi::__cxa_demangle(encoded, nullptr, nullptr, &status), &std::free);
  return name != nullptr ? name.get() : encoded;
}

}  // namespace

void CUObjectBegins(CUObject const* object) noexcept { LiveObjects().Add(object); }

void CUObjectEnds(CUObject const* object) noexcept { LiveObjects().Remove(object); }

std::map<std::string, std::size_t> CUCountLiveObjects() {
  std::map<char const*, std::size_t> encoded;
  LiveObjects().ForEach([&](CUObject const& object) { ++encoded[typeid(object).name()]; });
  std::map<std::string, std::size_t> counts;
  for (auto const& entry : encoded) counts[ReadableName(entry.first)] += entry.second;
  return counts;
}

void CUPrintLiveObjects(std::FILE* to) {
  std::size_t total = 0;
  for (auto const& entry : CUCountLiveObjects()) {
    std::fprintf(to, "%10zu  %s\n", entry.second, entry.first.c_str());
    total += entry.second;
  }
  std::fprintf(to, "%10zu  objects live\n", total);
  std::size_t const missed = LiveObjects().Missed();
  if (missed != 0)
    std::fprintf(to, "%10zu  objects were not counted, for want of memory\n", missed);
}
