#include "tests/support/DirectoryReads.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace {

DirectoryReads::Alteration g_alteration = DirectoryReads::None;
int g_reads = 0;

}  // namespace

DirectoryReads::DirectoryReads(Alteration alteration) {
  g_alteration = alteration;
  g_reads = 0;
}

DirectoryReads::~DirectoryReads() { g_alteration = None; }

// In place of the C library's.
extern "C" ssize_t getdents64(int directory, void* buffer, size_t size) {
  if (g_alteration == DirectoryReads::FailingAtSecond && ++g_reads == 2) {
    errno = EIO;
    return -1;
  }
  ssize_t const read = syscall(SYS_getdents64, directory, buffer, size);
  auto* const bytes = static_cast<char*>(buffer);
  for (ssize_t at = 0; g_alteration == DirectoryReads::WithoutKinds && at < read;) {
    auto* const entry = reinterpret_cast<dirent64*>(bytes + at);
    entry->d_type = DT_UNKNOWN;
    at += entry->d_reclen;
  }
  return read;
}
