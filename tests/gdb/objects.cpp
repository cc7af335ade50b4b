// One variable of each kind that tools/gdb/quillmere.py shows, whole and damaged. The program is
// not run by itself: printers.py stops it at Stop() and looks at what main sees.

#include <CoreFoundation/CoreFoundation.h>
#include <QuillmereLib/QuillmereLib.h>

#include <cstring>
#include <string>

namespace {

// A class that only this program knows, and which no printer shows.
struct Reel : CUObject {
  int number = 7;
};

// Room for two objects that were never constructed: other bytes, and zeroes.
template <class T>
struct Unmade {
  Unmade() { std::memset(raw, 0xA5, sizeof raw); }
  alignas(T) unsigned char raw[sizeof(T)], zero[sizeof(T)] = {};
};

// The members of a container's class begin behind those of CUObject.
char* Members(CUObject* object) { return reinterpret_cast<char*>(object) + sizeof(CUObject); }

void Overwrite(CUObject* object, std::size_t word, int byte) {
  std::memset(Members(object) + word * sizeof(void*), byte, sizeof(void*));
}

// Makes the root of a tree its own left child: it stands behind its colour and its parent.
void TieRoot(CUObject* object) {
  char* root = nullptr;
  std::memcpy(&root, Members(object) + 2 * sizeof(void*), sizeof root);
  std::memcpy(root + 2 * sizeof(void*), &root, sizeof root);
}

CUDateTime moment(0.25), ancient(-62.5e9), beyond(1e20);
CUMutableArray entries;

Unmade<CUStringMac> unmadeString;
Unmade<CUSharedPtr<CUObject>> unmadePointer;
Unmade<CUArray> unmadeArray;
Unmade<CUDictionary> unmadeDictionary;
Unmade<CUIndexSet> unmadeIndexes;
Unmade<CUVector<int>> unmadeVector;
Unmade<CUDateTime> unmadeMoment;
Unmade<CUUUID> unmadeUuid;
Unmade<CUFileInfo> unmadeEntry;

__attribute__((noinline)) void Stop(void const*) { asm volatile(""); }

CUStringMac Text(char const* utf8) { return CUStringMac(utf8, CUString_CharCode_UTF8); }
CUSharedPtr<CUStringMac> Shared(char const* utf8) { return new CUStringMac(Text(utf8)); }

// A string that is gone, and whose first word the allocator has written over.
CUStringMac* Gone() {
  alignas(CUStringMac) static unsigned char room[sizeof(CUStringMac)];
  auto* const string = new (room) CUStringMac(Text("gone"));
  string->~CUStringMac();
  std::memset(room, 0, sizeof(void*));
  return string;
}

}  // namespace

int main() {
  CUStringMac ascii = Text("say \"a\\b\"\n");
  CUStringMac wide = Text("Grüße, \U0001F3AC");
  CUStringMac null = Text("\xff");
  unsigned short units[] = {'a', 0xD800, 0, 'b'};
  CUStringMac unpaired(units, sizeof units);
  CUStringMac longText = Text(std::string(250, 'x').c_str());

  CUSharedPtr<CUStringMac> text = Shared("scene");
  CUSharedPtr<CUObject> object = text;
  CUSharedPtr<CUObject> nothing;
  CUSharedPtr<CUObject> unknown = new Reel;

  CUSharedPtr<CUMutableArray> list = new CUMutableArray;
  for (auto const& each : {object, nothing, unknown}) list->AddObject(each);

  CUMutableDictionary dictionary;
  dictionary.SetObjectForKey(text, Shared("c"));
  dictionary.SetObjectForKey(nullptr, Shared("b"));
  dictionary.SetObjectForKey(list, Shared("d"));
  CUMutableIndexSet indexes;
  for (int index : {8, 1, 5, 3, 7, 2}) indexes.AddIndex(index);

  CUDateTime noMoment(moment);
  CUDateTime const& itself = noMoment;
  noMoment = itself;  // loses the value
  CUUUID uuid(reinterpret_cast<unsigned char const*>("0123456789abcdef"));

  CFStringRef cfString = wide;
  CFDateRef cfDate = CFDateCreate(kCFAllocatorDefault, -0.5);
  UInt8 const bytes[17] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};
  CFDataRef cfData = CFDataCreate(kCFAllocatorDefault, bytes, sizeof bytes);
  CFUUIDRef cfUuid = uuid;

  CUXmlDomDocumentNode document;
  CUSharedPtr<CUXmlDomElementNode> element = document.CreateElementNode(Shared("reel"));
  element->SetAttribute(Shared("a"), Shared("1"));
  element->GetChildNodes()->AddObject(document.CreateTextNode(Shared("text")));

  entries.AddObject(new CUFileInfo(Shared("/films/reel.mov")));
  entries.AddObject(new CUDirectoryInfo(Shared("/films")));
  CFStringRef wild = reinterpret_cast<CFStringRef>(0x10);

  // Of another class, damaged by what was written over them, and gone.
  CFStringRef notAString = reinterpret_cast<CFStringRef>(cfDate);
  CUArray overrun(list);
  Overwrite(&overrun, 0, 0x5A);
  CUMutableDictionary torn(dictionary);
  Overwrite(&torn, 2, 0x5A);
  CUMutableIndexSet cyclic(indexes);
  TieRoot(&cyclic);
  CUStringMac* const gone = Gone();
  CFStringRef const goneText = CFStringCreateWithBytes(kCFAllocatorDefault, bytes, sizeof bytes,
                                                       kCFStringEncodingASCII, false);
  CFRelease(goneText);

  void const* all[] = {cfString, cfData, cfUuid, wild, notAString, gone, goneText};
  Stop(all);
}
