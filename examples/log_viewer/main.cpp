// log_viewer: prints the lines of a CULog, the oldest first, and goes on with those that come, from
// file to file of the ring. With --until-idle it ends when nothing has come for so long.
//
//   log_viewer FOLDER STEM [--until-idle SECONDS]

#include <QuillmereLib/QuillmereLib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

namespace {

struct Ring {
  CUSharedPtr<CUStringMac> folder, stem;
  CUSharedPtr<CUStringMac> Path(int file) { return CULog::GetLogFilePath(folder, stem, file); }
  unsigned long long Size(int file) { return CULog::GetLogFileSize(Path(file)); }

  // The file that is written: the one before a missing one, else one that is younger than the next.
  int Present() {
    int younger = kLogFileCount - 1;
    for (int i = 1; i < kLogFileCount; ++i) {
      auto const before = CULog::GetLogFileTime(Path(i - 1), _Log_DateTime_Modified);
      auto const here = CULog::GetLogFileTime(Path(i), _Log_DateTime_Modified);
      if (here == nullptr) return i - 1;
      if (before != nullptr && *here < *before) younger = i - 1;
    }
    return younger;
  }

  // What stands behind `offset`. A file is opened for each look: the log deletes it in its turn.
  std::string ReadFrom(int file, unsigned long long offset) {
    CUSharedPtr<CUStringMac> path = Path(file);
    CUFileStream stream(path, CUStream_FileMode_Open, CUStream_FileAccess_Read, true);
    if (!stream.CanRead() || stream.Length() <= offset) return std::string();
    std::string text(stream.Length() - offset, '\0');
    text.resize(stream.Read(reinterpret_cast<unsigned char*>(&text[0]), text.size(),
                            static_cast<long long>(offset), CUStream_Seek_Origin_Begin));
    return text;
  }
};

int Next(int file) { return (file + 1) % kLogFileCount; }

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && (argc != 5 || std::strcmp(argv[3], "--until-idle") != 0)) {
    std::fprintf(stderr, "usage: log_viewer FOLDER STEM [--until-idle SECONDS]\n");
    return 2;
  }
  double const patience = argc == 5 ? std::atof(argv[4]) : std::numeric_limits<double>::infinity();
  Ring ring = {new CUStringMac(argv[1], CUString_CharCode_UTF8),
               new CUStringMac(argv[2], CUString_CharCode_UTF8)};

  int newest = ring.Present(), file = Next(newest);
  unsigned long long nextSize = ring.Size(file), offset = 0;
  for (double idle = 0; idle < patience;) {
    // Asked before `file` is read: once the log has turned to the next one, nothing comes here.
    if (ring.Size(Next(newest)) != nextSize) {
      newest = Next(newest);
      nextSize = ring.Size(Next(newest));
    }
    std::string const text = ring.ReadFrom(file, offset);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    offset += text.size();
    if (!text.empty()) idle = 0;
    if (file != newest) {
      file = Next(file);
      offset = 0;
    } else if (text.empty()) {
      CUSleep(50);
      idle += 0.05;
    }
  }
}
