// Open data forks. A fork's number is its descriptor plus one: the system already hands descriptors
// out without clashes, so finding a fork takes no lock, and only a mark has to be kept beside it.

#include <CoreServices/Files.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <new>

#include "platform/linux/Errors.h"
#include "platform/linux/FileNames.h"
#include "platform/linux/Handles.h"

namespace {

// `mark` is atomic for the sake of callers who use a number that another thread is closing: they
// get a wrong answer, not undefined behaviour.
struct Fork {
  std::atomic<bool> isOpen{false};
  std::atomic<SInt64> mark{0};

  SInt64 Mark() const { return mark.load(std::memory_order_relaxed); }
  void SetMark(SInt64 position) { mark.store(position, std::memory_order_relaxed); }
};

// Blocks are made when a descriptor first falls into them, never move and are never freed. They
// cover the million descriptors that the system allows a process by default.
constexpr UInt32 kForksPerBlock = 256;
constexpr UInt32 kBlockCount = 4096;
struct Block {
  Fork forks[kForksPerBlock];
};
std::atomic<Block*> g_blocks[kBlockCount];

// The most that one transfer of the system moves.
constexpr ByteCount kLargestTransfer = 0x7ffff000;
constexpr SInt64 kLastPosition = std::numeric_limits<SInt64>::max();

constexpr int DescriptorOf(FSIORefNum number) { return number - 1; }

Fork* FindOpen(FSIORefNum number) {
  UInt32 const index = static_cast<UInt32>(number) - 1;
  if (index >= kForksPerBlock * kBlockCount) return nullptr;
  Block* const block = g_blocks[index / kForksPerBlock].load(std::memory_order_acquire);
  if (block == nullptr) return nullptr;
  Fork* const fork = &block->forks[index % kForksPerBlock];
  return fork->isOpen.load(std::memory_order_acquire) ? fork : nullptr;
}

// Two threads that miss the same block both make one; the first to hand it in wins.
Block* FindOrMakeBlock(std::atomic<Block*>* place) {
  Block* present = place->load(std::memory_order_acquire);
  if (present != nullptr) return present;
  Block* const made = new (std::nothrow) Block;
  if (made == nullptr) return nullptr;
  if (place->compare_exchange_strong(present, made, std::memory_order_acq_rel)) return made;
  delete made;
  return present;
}

// Takes the descriptor over when it succeeds.
OSErr Enter(Descriptor* descriptor, FSIORefNum* number) {
  auto const index = static_cast<UInt32>(descriptor->Get());
  if (index >= kForksPerBlock * kBlockCount) return tmfoErr;
  Block* const block = FindOrMakeBlock(&g_blocks[index / kForksPerBlock]);
  if (block == nullptr) return memFullErr;
  Fork* const fork = &block->forks[index % kForksPerBlock];
  fork->SetMark(0);
  fork->isOpen.store(true, std::memory_order_release);
  *number = descriptor->Release() + 1;
  return noErr;
}

bool HasFork(struct stat const& facts) {
  return S_ISREG(facts.st_mode) || S_ISBLK(facts.st_mode) || S_ISCHR(facts.st_mode);
}

Descriptor Open(FSRef const& ref, int access) {
  // An entry that has become a FIFO or a link since it was looked at neither blocks nor leads away.
  constexpr int kFlags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  return Descriptor(Uninterrupted([&] { return open(ref.path, access | kFlags); }));
}

bool RefusesWriting(int error) {
  return error == EACCES || error == EPERM || error == EROFS || error == ETXTBSY;
}

Descriptor OpenWithPermission(FSRef const& ref, SInt8 permissions) {
  switch (permissions) {
    case fsRdPerm:
      return Open(ref, O_RDONLY);
    case fsWrPerm:
      return Open(ref, O_WRONLY);
    default:
      break;
  }
  Descriptor descriptor = Open(ref, O_RDWR);
  if (!descriptor.IsOpen() && permissions == fsCurPerm && RefusesWriting(errno)) {
    return Open(ref, O_RDONLY);
  }
  return descriptor;
}

// An entry that has become a link, FIFO or socket since it was looked at.
bool IsOfAnotherKind(int error) { return error == ELOOP || error == ENXIO; }

OSErr Length(int descriptor, SInt64* length) {
  struct stat facts;
  if (fstat(descriptor, &facts) != 0) return StatusFromErrno(errno);
  *length = facts.st_size;
  // A device's size is not among its facts. The system's own offset is used by nobody else.
  if (S_ISBLK(facts.st_mode)) *length = lseek(descriptor, 0, SEEK_END);
  return *length < 0 ? StatusFromErrno(errno) : OSErr{noErr};
}

// The position that mode and offset name.
OSErr Locate(FSIORefNum number, Fork const& fork, UInt16 mode, SInt64 offset, SInt64* position) {
  SInt64 base = 0;
  switch (mode) {
    case fsAtMark:
      *position = fork.Mark();
      return noErr;
    case fsFromStart:
      break;
    case fsFromMark:
      base = fork.Mark();
      break;
    case fsFromLEOF: {
      OSErr const status = Length(DescriptorOf(number), &base);
      if (status != noErr) return status;
      break;
    }
    default:
      return paramErr;
  }
  SInt64 sum = 0;
  if (__builtin_add_overflow(base, offset, &sum) || sum < 0) return posErr;
  *position = sum;
  return noErr;
}

// The status of a call that failed with `error`; a descriptor that was not opened for it, which the
// system tells in several ways, is permErr. `unfitAccess` is the access that rules the call out.
OSErr TransferFailure(FSIORefNum number, int unfitAccess, int error) {
  int const flags = fcntl(DescriptorOf(number), F_GETFL);
  if (flags != -1 && (flags & O_ACCMODE) == unfitAccess) return permErr;
  return StatusFromErrno(error);
}

// Carries a transfer on to its end. `move` takes the bytes done, the size and the position of the
// next piece and gives the bytes moved, 0 for no more, -1 for a failure.
template <typename Move>
OSErr Transfer(FSIORefNum number, UInt16 mode, SInt64 offset, ByteCount count, ByteCount* actual,
               int unfitAccess, OSErr stopped, Move move) {
  if (actual != nullptr) *actual = 0;
  Fork* const fork = FindOpen(number);
  if (fork == nullptr) return rfNumErr;
  SInt64 position = 0;
  OSErr status = Locate(number, *fork, mode, offset, &position);
  if (status != noErr) return status;

  ByteCount done = 0;
  while (done < count) {
    ByteCount const room = static_cast<ByteCount>(kLastPosition - position);
    ByteCount const size = std::min({count - done, kLargestTransfer, room});
    ssize_t const moved = Uninterrupted([&] { return move(done, size, position); });
    if (moved <= 0) {
      status = moved == 0 ? stopped : TransferFailure(number, unfitAccess, errno);
      break;
    }
    done += static_cast<ByteCount>(moved);
    position += moved;
  }
  fork->SetMark(position);
  if (actual != nullptr) *actual = done;
  return status;
}

// Writes where the file ends by then, and leaves the system's own offset behind it.
ssize_t WriteAtEnd(int descriptor, iovec const& piece) {
  ssize_t const moved = pwritev2(descriptor, &piece, 1, -1, RWF_APPEND);
  if (moved >= 0 || errno != EOPNOTSUPP) return moved;
  // Kernels before 4.16 and some emulators lack the call, and know it as a mode of the open file.
  int const flags = fcntl(descriptor, F_GETFL);
  if (flags == -1 || fcntl(descriptor, F_SETFL, flags | O_APPEND) != 0) return -1;
  ssize_t const written = writev(descriptor, &piece, 1);
  int const error = errno;
  fcntl(descriptor, F_SETFL, flags);
  errno = error;
  return written;
}

// Each piece goes to where the fork ends as it is written, so that writers who do not know of each
// other never write over what the other one has just appended.
OSErr Append(FSIORefNum number, ByteCount count, void const* buffer, ByteCount* actual) {
  ByteCount appended = 0;
  auto const append = [&](ByteCount done, ByteCount size, SInt64) {
    iovec const piece = {const_cast<char*>(static_cast<char const*>(buffer)) + done, size};
    ssize_t const moved = WriteAtEnd(DescriptorOf(number), piece);
    if (moved > 0) appended = done + static_cast<ByteCount>(moved);
    return moved;
  };
  OSErr const status = Transfer(number, fsFromStart, 0, count, actual, O_RDONLY, dskFulErr, append);
  // The system's own offset, which nothing else moves, is behind the last piece.
  SInt64 const end = appended > 0 ? lseek(DescriptorOf(number), 0, SEEK_CUR) : 0;
  FSSetForkPosition(number, appended > 0 ? fsFromStart : fsFromLEOF, end);
  return status;
}

}  // namespace

OSErr FSGetDataForkName(HFSUniStr255* forkName) {
  if (forkName == nullptr) return paramErr;
  forkName->length = 0;
  return noErr;
}

OSErr FSOpenFork(FSRef const* ref, UniCharCount forkNameLength, UniChar const*, SInt8 permissions,
                 FSIORefNum* forkRefNum) {
  if (ref == nullptr || PathLength(*ref) == 0 || forkNameLength != 0 || forkRefNum == nullptr ||
      permissions < fsCurPerm || permissions > fsRdWrPerm) {
    return paramErr;
  }
  // Looked at before opening, as opening alone can wake the other end of a FIFO.
  struct stat facts;
  if (!ref->isFile) {
    if (lstat(ref->path, &facts) != 0) return StatusFromErrno(errno);
    if (!HasFork(facts)) return opWrErr;
  }
  Descriptor descriptor = OpenWithPermission(*ref, permissions);
  if (!descriptor.IsOpen()) return IsOfAnotherKind(errno) ? OSErr{opWrErr} : StatusFromErrno(errno);
  if (fstat(descriptor.Get(), &facts) != 0) return StatusFromErrno(errno);
  if (!HasFork(facts)) return opWrErr;
  return Enter(&descriptor, forkRefNum);
}

OSErr FSCloseFork(FSIORefNum forkRefNum) {
  Fork* const fork = FindOpen(forkRefNum);
  // Marked closed first: the system may give the descriptor to another thread before close returns.
  if (fork == nullptr || !fork->isOpen.exchange(false, std::memory_order_acq_rel)) return rfNumErr;
  // An interrupted close has closed nonetheless, and a second one might hit another's descriptor.
  if (close(DescriptorOf(forkRefNum)) != 0 && errno != EINTR) return StatusFromErrno(errno);
  return noErr;
}

OSErr FSGetForkSize(FSIORefNum forkRefNum, SInt64* forkSize) {
  if (forkSize == nullptr) return paramErr;
  if (FindOpen(forkRefNum) == nullptr) return rfNumErr;
  SInt64 length = 0;
  OSErr const status = Length(DescriptorOf(forkRefNum), &length);
  if (status == noErr) *forkSize = length;
  return status;
}

OSErr FSSetForkSize(FSIORefNum forkRefNum, UInt16 positionMode, SInt64 positionOffset) {
  Fork* const fork = FindOpen(forkRefNum);
  if (fork == nullptr) return rfNumErr;
  SInt64 length = 0;
  OSErr const status = Locate(forkRefNum, *fork, positionMode, positionOffset, &length);
  if (status != noErr) return status;
  if (Uninterrupted([&] { return ftruncate(DescriptorOf(forkRefNum), length); }) != 0) {
    return TransferFailure(forkRefNum, O_RDONLY, errno);
  }
  fork->SetMark(std::min(fork->Mark(), length));
  return noErr;
}

OSErr FSGetForkPosition(FSIORefNum forkRefNum, SInt64* position) {
  if (position == nullptr) return paramErr;
  Fork const* const fork = FindOpen(forkRefNum);
  if (fork == nullptr) return rfNumErr;
  *position = fork->Mark();
  return noErr;
}

OSErr FSSetForkPosition(FSIORefNum forkRefNum, UInt16 positionMode, SInt64 positionOffset) {
  Fork* const fork = FindOpen(forkRefNum);
  if (fork == nullptr) return rfNumErr;
  SInt64 position = 0;
  OSErr const status = Locate(forkRefNum, *fork, positionMode, positionOffset, &position);
  if (status == noErr) fork->SetMark(position);
  return status;
}

OSErr FSReadFork(FSIORefNum forkRefNum, UInt16 positionMode, SInt64 positionOffset,
                 ByteCount requestCount, void* buffer, ByteCount* actualCount) {
  auto const read = [=](ByteCount done, ByteCount size, SInt64 position) {
    return pread(DescriptorOf(forkRefNum), static_cast<char*>(buffer) + done, size, position);
  };
  return Transfer(forkRefNum, positionMode, positionOffset, requestCount, actualCount, O_WRONLY,
                  eofErr, read);
}

OSErr FSWriteFork(FSIORefNum forkRefNum, UInt16 positionMode, SInt64 positionOffset,
                  ByteCount requestCount, void const* buffer, ByteCount* actualCount) {
  if (positionMode == fsFromLEOF && positionOffset == 0) {
    return Append(forkRefNum, requestCount, buffer, actualCount);
  }
  auto const write = [=](ByteCount done, ByteCount size, SInt64 position) {
    return pwrite(DescriptorOf(forkRefNum), static_cast<char const*>(buffer) + done, size,
                  position);
  };
  return Transfer(forkRefNum, positionMode, positionOffset, requestCount, actualCount, O_RDONLY,
                  dskFulErr, write);
}
