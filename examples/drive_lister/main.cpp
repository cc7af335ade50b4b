// drive_lister: a table of drives, with their kinds and sizes.
//
//   drive_lister [PATH...]
// Of the paths given, else of the places where systems mount drives, each drive once.

#include <QuillmereLib/QuillmereLib.h>

#include <cstdio>
#include <set>
#include <string>

namespace {

char const* const kKinds[] = {"optical",  "fixed",     "no device", "unknown",
                              "RAM disk", "removable", "unknown"};  // by _CUDriveType

// UTF-8 in which nothing moves the cursor; a dash for a missing text.
std::string Shown(CUSharedPtr<CUStringMac> string) {
  char const* const text = string == nullptr ? nullptr : static_cast<char const*>(*string);
  std::string shown = text == nullptr || *text == '\0' ? "-" : text;
  for (char& unit : shown) {
    if (static_cast<unsigned char>(unit) < ' ' || unit == '\x7f') unit = '?';
  }
  return shown;
}

class DriveTable {
 public:
  // Lists the drive of a path, unless it stands there already. False where there is none.
  bool Add(CUSharedPtr<CUStringMac> path) {
    CUSharedPtr<CUDriveInfo> const drive = CUDriveInfo::CreateCUDriveInfo(path);
    if (drive == nullptr) return false;
    std::string const root = Shown(drive->GetName());
    if (!m_roots.insert(root).second) return true;
    std::printf("%-9s %15llu %15llu  %-5s %s (%s)%s\n", kKinds[drive->GetDriveType()],
                drive->GetTotalSize(), drive->GetTotalFreeSize(), drive->IsReady() ? "yes" : "no",
                root.c_str(), Shown(drive->GetVolumeLabel()).c_str(),
                drive->IsSysytemDrive() ? ", the system's" : "");
    return true;
  }

  // Adds the folders in `path`, and those in them as deep as `levels`.
  void AddFoldersIn(CUSharedPtr<CUStringMac> path, int levels) {
    CUSharedPtr<CUArray> folders;
    try {
      folders = CUDirectory::GetDirectories(path);
    } catch (unsigned int) {  // not there, or not ours to read
      return;
    }
    for (CUSharedPtr<CUObject> const& entry : *folders->GetInternalArray()) {
      CUSharedPtr<CUStringMac> const folder = dynamic_cast<CUDirectoryInfo&>(*entry).GetFullName();
      Add(folder);
      if (levels > 1) AddFoldersIn(folder, levels - 1);
    }
  }

 private:
  std::set<std::string> m_roots;
};

CUSharedPtr<CUStringMac> Text(char const* text) {
  return new CUStringMac(text, CUString_CharCode_UTF8);
}

}  // namespace

int main(int argc, char** argv) {
  int status = 0;
  DriveTable table;
  std::printf("%-9s %15s %15s  %-5s %s\n", "kind", "bytes", "free", "ready", "root (label)");
  for (int i = 1; i < argc; ++i) {
    if (table.Add(Text(argv[i]))) continue;
    std::fprintf(stderr, "drive_lister: no drive is known of %s\n", argv[i]);
    status = 1;
  }
  if (argc > 1) return status;
  for (char const* place : {"/", "/mnt", "/Volumes"}) table.AddFoldersIn(Text(place), 1);
  for (char const* place : {"/media", "/run/media"}) table.AddFoldersIn(Text(place), 2);
}
