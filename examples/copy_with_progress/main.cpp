// copy_with_progress: copies one file and tells how far it is. Ctrl-C stops it, and leaves at the
// destination what was there before.
//
//   copy_with_progress [--overwrite] SOURCE DESTINATION
//
// Ends with 0, or 1 for a failure, 2 for wrong usage, 130 when stopped.

#include <QuillmereLib/QuillmereLib.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void OnInterrupt(int) { interrupted = 1; }

struct Progress {
  bool onTerminal;
  bool stopped;
};

// Called by the library on this thread, every 0.1 seconds and once before the copy gets its name.
bool Show(unsigned long long total, unsigned long long completed, void* clientData) {
  auto& progress = *static_cast<Progress*>(clientData);
  double const percent = 100.0 * static_cast<double>(completed) / static_cast<double>(total);
  std::printf("%s%3.0f %%, %llu of %llu bytes%s", progress.onTerminal ? "\r" : "", percent,
              completed, total, progress.onTerminal ? "" : "\n");
  std::fflush(stdout);
  progress.stopped = interrupted != 0;
  return !progress.stopped;
}

int Copy(char const* from, std::string to, bool overwrite) {
  // A file is made in a folder, and a bare name has none.
  if (to.find('/') == std::string::npos) to.insert(0, "./");
  CUSharedPtr<CUStringMac> source = new CUStringMac(from, CUString_CharCode_UTF8);
  CUSharedPtr<CUStringMac> destination = new CUStringMac(to.c_str(), CUString_CharCode_UTF8);

  Progress progress = {isatty(STDOUT_FILENO) == 1, false};
  _CopyProgress_Info info = {Show, &progress, nullptr};
  CUResult const result = CUFile::CopyWithProgress(source, destination, &info, overwrite);
  if (progress.onTerminal) std::printf("\n");
  if (progress.stopped) {
    std::fprintf(stderr, "copy_with_progress: stopped\n");
    return 130;
  }
  if (!CUFailed(result)) return 0;
  std::fprintf(stderr, "copy_with_progress: failed with result 0x%x\n", unsigned{result});
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  bool const overwrite = argc == 4 && std::strcmp(argv[1], "--overwrite") == 0;
  if (argc != 3 && !overwrite) {
    std::fprintf(stderr, "usage: copy_with_progress [--overwrite] SOURCE DESTINATION\n");
    return 2;
  }
  std::signal(SIGINT, OnInterrupt);
  try {
    return Copy(argv[argc - 2], argv[argc - 1], overwrite);
  } catch (unsigned int code) {  // one of _CUErrorContents, before anything was begun
    std::fprintf(stderr, "copy_with_progress: refused with error code %u\n", code);
    return 1;
  }
}
