// Uses the installed library from outside: its classes, its data, and the callers' part of the
// platform seam.

#include <CoreFoundation/CoreFoundation.h>
#include <QuillmereLib/QuillmereLib.h>

#include <cstdio>
#include <cstring>

namespace {

int faults = 0;

void Check(bool holds, char const* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  ++faults;
}

// A type of this program must keep its identity in the library and back.
struct Reel : CUObject {
  explicit Reel(int number) : number(number) {}
  int const number;
};

int Number(CUSharedPtr<CUObject> const& object) {
  return dynamic_cast<Reel&>(*object.Get()).number;
}

struct ByNumber : CUSortDescriptor {
  int CompareObject(CUSharedPtr<CUObject> first, CUSharedPtr<CUObject> second) override {
    return Number(second) - Number(first);
  }
};

// An error code thrown in the library must arrive here as the type it was thrown as.
unsigned int ErrorOfOpening(char const* path) {
  CUStringMac text(path, CUString_CharCode_UTF8);
  try {
    CUFileStream stream(&text, CUStream_FileMode_Open, CUStream_FileAccess_Read, false);
  } catch (unsigned int code) {
    return code;
  }
  return 0;
}

}  // namespace

int main() {
  CUStringMac path("/films/reel.mov", CUString_CharCode_UTF8), name;
  Check(path.PathGetFileName(name) == CUResult_Success && std::strcmp(name, "reel.mov") == 0 &&
            CU_NEWLINE_CHAR[0] == '\n',
        "strings");

  CUSharedPtr<CUMutableArray> const reels(new CUMutableArray);
  for (int number : {3, 1, 2}) reels->AddObject(new Reel(number));
  reels->SortUsingDescriptor(new ByNumber);
  for (int i = 0; i < 3; ++i) Check(Number(reels->ObjectAtIndex(i)) == i + 1, "collections");

  Check(ErrorOfOpening("/nowhere/at/all") == CUError_FileNotFound, "errors");

  UniChar const units[] = {'S', 'e', 'a', 'm'};
  CFStringRef const text = CFStringCreateWithCharacters(kCFAllocatorDefault, units, 4);
  CUStringMac copy(text);
  CFRelease(text);
  Check(copy.Length() == 4 && CFStringGetLength(copy) == 4, "the platform's own strings");
  return faults;
}
