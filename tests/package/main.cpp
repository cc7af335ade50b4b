// Uses the installed library from outside: its classes, its data, and the callers' part of the
// platform seam.

#include <CoreFoundation/CoreFoundation.h>
#include <QuillmereLib/QuillmereLib.h>

#include <cstdio>
#include <cstring>

namespace {

bool Check(bool holds, char const* what) {
  if (!holds) std::fprintf(stderr, "does not hold: %s\n", what);
  return holds;
}

// A type of this program must keep its identity in the library and back.
class Reel : public CUObject {
 public:
  explicit Reel(int number) : number(number) {}
  int const number;
};

class ByNumber : public CUSortDescriptor {
 public:
  int CompareObject(CUSharedPtr<CUObject> first, CUSharedPtr<CUObject> second) override {
    return Number(second) - Number(first);
  }

 private:
  static int Number(CUSharedPtr<CUObject> const& object) {
    auto* const reel = dynamic_cast<Reel*>(object.Get());
    return reel == nullptr ? 0 : reel->number;
  }
};

bool StringsWork() {
  CUStringMac path("/films/reel.mov", CUString_CharCode_UTF8);
  CUStringMac name;
  bool const found = path.PathGetFileName(name) == CUResult_Success;
  char const* const text = name;
  return found && std::strcmp(text, "reel.mov") == 0 && CU_NEWLINE_CHAR[0] == '\n';
}

bool CollectionsWork() {
  CUSharedPtr<CUMutableArray> reels(new CUMutableArray);
  for (int number : {3, 1, 2}) reels->AddObject(CUSharedPtr<CUObject>(new Reel(number)));
  reels->SortUsingDescriptor(CUSharedPtr<CUSortDescriptor>(new ByNumber));
  for (int i = 0; i < 3; ++i) {
    auto* const reel = dynamic_cast<Reel*>(reels->ObjectAtIndex(i).Get());
    if (reel == nullptr || reel->number != i + 1) return false;
  }
  return true;
}

// An error code thrown in the library must arrive here as the type it was thrown as.
bool ErrorsArrive() {
  CUStringMac missing("/nowhere/at/all", CUString_CharCode_UTF8);
  try {
    CUFileStream stream(&missing, CUStream_FileMode_Open, CUStream_FileAccess_Read, false);
  } catch (unsigned int code) {
    return code == CUError_FileNotFound;
  }
  return false;
}

bool SeamIsUsable() {
  UniChar const units[] = {'S', 'e', 'a', 'm'};
  CFStringRef const text = CFStringCreateWithCharacters(kCFAllocatorDefault, units, 4);
  CUStringMac copy(text);
  CFRelease(text);
  return copy.Length() == 4 && CFStringGetLength(copy) == 4;
}

}  // namespace

int main() {
  bool holds = Check(StringsWork(), "strings");
  holds &= Check(CollectionsWork(), "collections");
  holds &= Check(ErrorsArrive(), "errors");
  holds &= Check(SeamIsUsable(), "the platform's own strings");
  return holds ? 0 : 1;
}
