#include <CoreFoundation/CFUUID.h>
#include <sys/mman.h>
#include <sys/random.h>

#include <cerrno>
#include <cstring>

#include "platform/linux/CFStringObject.h"

struct __CFUUID final : CFObject {
  explicit __CFUUID(CFUUIDBytes const& value) : bytes(value) {}

  CFUUIDBytes const bytes;
};

namespace {

bool ReadRandom(void* target, std::size_t size) {
  char* to = static_cast<char*>(target);
  while (size != 0) {
    ssize_t const got = getrandom(to, size, 0);
    if (got < 0 && errno != EINTR) return false;
    if (got <= 0) continue;
    to += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

constexpr std::size_t kKeptCount = 64;

// Random bytes for the next identifiers. They lie in memory of their own, which the system clears
// in a forked child; then `isFilled` is false there.
struct KeptBytes {
  bool isFilled;
  CFUUIDBytes identifiers[kKeptCount];
};

// Null where the system cannot keep such memory to one process.
KeptBytes* MapKeptBytes() {
  void* const memory =
      mmap(nullptr, sizeof(KeptBytes), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  if (madvise(memory, sizeof(KeptBytes), MADV_WIPEONFORK) != 0) {
    munmap(memory, sizeof(KeptBytes));
    return nullptr;
  }
  madvise(memory, sizeof(KeptBytes), MADV_DONTDUMP);
  return static_cast<KeptBytes*>(memory);
}

thread_local bool randomIsGone = false;

// The random bytes of a thread, which asks the system for many at once, since each call costs more
// than the rest of making an identifier.
class ThreadRandom {
 public:
  ThreadRandom() : m_kept(MapKeptBytes()) {}
  ThreadRandom(ThreadRandom const&) = delete;
  ThreadRandom& operator=(ThreadRandom const&) = delete;
  ~ThreadRandom() {
    if (m_kept != nullptr) munmap(m_kept, sizeof(KeptBytes));
    randomIsGone = true;
  }

  bool Take(CFUUIDBytes& bytes) {
    if (m_kept == nullptr) return ReadRandom(&bytes, sizeof bytes);
    if (!m_kept->isFilled || m_next == kKeptCount) {
      m_kept->isFilled = ReadRandom(m_kept->identifiers, sizeof m_kept->identifiers);
      if (!m_kept->isFilled) return false;
      m_next = 0;
    }
    bytes = m_kept->identifiers[m_next];
    std::memset(&m_kept->identifiers[m_next], 0, sizeof bytes);
    ++m_next;
    return true;
  }

 private:
  KeptBytes* const m_kept;  // owned mapping, or null
  std::size_t m_next = 0;
};

bool TakeRandom(CFUUIDBytes& bytes) {
  // Static objects may make identifiers at exit, when what the thread kept is destroyed.
  if (randomIsGone) return ReadRandom(&bytes, sizeof bytes);
  thread_local ThreadRandom random;
  return random.Take(bytes);
}

}  // namespace

CFUUIDRef CFUUIDCreate(CFAllocatorRef allocator) {
  CFUUIDBytes bytes;
  if (!TakeRandom(bytes)) return nullptr;
  bytes.byte6 = static_cast<UInt8>((bytes.byte6 & 0x0F) | 0x40);
  bytes.byte8 = static_cast<UInt8>((bytes.byte8 & 0x3F) | 0x80);
  return CFUUIDCreateFromUUIDBytes(allocator, bytes);
}

CFUUIDRef CFUUIDCreateWithBytes(CFAllocatorRef allocator, UInt8 byte0, UInt8 byte1, UInt8 byte2,
                                UInt8 byte3, UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7,
                                UInt8 byte8, UInt8 byte9, UInt8 byte10, UInt8 byte11, UInt8 byte12,
                                UInt8 byte13, UInt8 byte14, UInt8 byte15) {
  return CFUUIDCreateFromUUIDBytes(
      allocator, {byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7, byte8, byte9, byte10,
                  byte11, byte12, byte13, byte14, byte15});
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef, CFUUIDBytes bytes) {
  return MakeCFObject<__CFUUID>(0, bytes);
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) {
  return uuid == nullptr ? CFUUIDBytes{} : uuid->bytes;
}

CFStringRef CFUUIDCreateString(CFAllocatorRef, CFUUIDRef uuid) {
  if (uuid == nullptr) return nullptr;
  UInt8 bytes[sizeof uuid->bytes];
  std::memcpy(bytes, &uuid->bytes, sizeof bytes);
  char text[36];
  char* to = text;
  for (std::size_t i = 0; i < sizeof bytes; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) *to++ = '-';
    *to++ = "0123456789ABCDEF"[bytes[i] >> 4];
    *to++ = "0123456789ABCDEF"[bytes[i] & 0x0F];
  }
  return CreateNarrow(text, sizeof text);
}
