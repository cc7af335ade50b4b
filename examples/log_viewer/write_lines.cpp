// For the test of log_viewer: starts a log and writes numbered lines of about 1000 bytes, as many
// as each number on the standard input says.
//
//   write_lines FOLDER STEM

#include <QuillmereLib/QuillmereLib.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  CULog::InitializeWithName(new CUStringMac(argv[1], CUString_CharCode_UTF8),
                            new CUStringMac(argv[2], CUString_CharCode_UTF8), 3);
  std::string const filling(950, '-');
  int count = 0, number = 0;
  while (std::scanf("%d", &count) == 1) {
    for (; count > 0; --count) CULog::Write(3, "line %d %s", ++number, filling.c_str());
  }
}
