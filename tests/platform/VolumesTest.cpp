#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <DiskArbitration/DiskArbitration.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/VolumeNumbers.h"
#include "tests/support/InChild.h"
#include "tests/support/MountTableFile.h"
#include "tests/support/Mounts.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"

namespace {

using std::to_string;

OSErr Root(FSVolumeRefNum volume, FSRef* root, HFSUniStr255* name = nullptr) {
  return FSGetVolumeInfo(volume, 0, nullptr, kFSVolInfoNone, nullptr, name, root);
}

// "name at root", or the status.
std::string Tell(FSVolumeRefNum volume) {
  FSRef root;
  HFSUniStr255 name;
  OSErr const status = Root(volume, &root, &name);
  if (status != noErr) return to_string(status);
  CUStringMac text(name.unicode, name.length * 2u);
  return Utf8(text) + " at " + root.path;
}

// The mount points of all volumes, each behind a blank.
std::string EnumeratedVolumes() {
  CFURLEnumeratorRef const volumes =
      CFURLEnumeratorCreateForMountedVolumes(kCFAllocatorDefault, 0, nullptr);
  std::string paths;
  CFURLRef url = nullptr;
  for (;;) {
    CFURLEnumeratorResult const result = CFURLEnumeratorGetNextURL(volumes, &url, nullptr);
    if (result == kCFURLEnumeratorEnd) break;
    if (result == kCFURLEnumeratorError) {
      paths += " error";
      continue;
    }
    CFStringRef const path = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
    paths += " " + Utf8(path);
    CFRelease(path);
  }
  EXPECT_EQ(CFURLEnumeratorGetNextURL(volumes, &url, nullptr), kCFURLEnumeratorEnd);
  CFRelease(volumes);
  return paths;
}

// The device of the volume mounted at the path, "none", or "no volume".
std::string DiskAt(std::string const& path) {
  CFURLRef const url =
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, *Make(path), kCFURLPOSIXPathStyle, true);
  DASessionRef const session = DASessionCreate(kCFAllocatorDefault);
  DADiskRef const disk = DADiskCreateFromVolumePath(kCFAllocatorDefault, session, url);
  CFRelease(session);
  CFRelease(url);
  if (disk == nullptr) return "no volume";
  char const* const name = DADiskGetBSDName(disk);
  std::string const result = name != nullptr ? name : "none";
  CFRelease(disk);
  return result;
}

class Volumes : public testing::Test {
 protected:
  // A folder for `name`, made.
  std::string Folder(std::string const& name) {
    std::filesystem::create_directories(base + name);
    return base + name;
  }
  std::string VolumeOf(std::string const& path) { return Tell(VolumeNumberOf(path.c_str())); }

  TemporaryFolder folder;
  std::string base = folder.Path() + "/";
};

}  // namespace

TEST_F(Volumes, AreFoundAsThePathLeads) {
  MountTableFile table;
  int const root = table.Add(0, "8:1", "/", "/dev/none1");
  int const disk = table.Add(root, "8:2", Folder("My Disk"), "/dev/none2");
  table.Add(disk, "8:3", Folder("My Disk/in/deep"), "/dev/none3");
  // Below a mount that is hidden by the next one, which is hidden by the last at its own place.
  int const hidden = table.Add(root, "8:4", Folder("over"), "/dev/none4");
  table.Add(hidden, "8:5", Folder("over/below"), "/dev/none5");
  int const covered = table.Add(hidden, "8:6", base + "over", "/dev/none6");
  table.Add(covered, "8:7", base + "over", "/dev/none7");
  Folder("My Disk2");
  Folder("My Disk/in/deeper");
  std::filesystem::create_symlink("My Disk/in", base + "link");
  std::filesystem::create_symlink("../..", base + "My Disk/in/up");
  WriteFile(base + "My Disk/file", "x");

  std::pair<std::string, std::vector<std::string>> const cases[] = {
      {"/ at /", {"/", base + "My Disk2", base + "link", base + "link/up/My Disk2"}},
      {"My Disk at " + base + "My Disk",
       {base + "My Disk", base + "My Disk/file", base + "My Disk/in/deeper", base + "link/up"}},
      {"deep at " + base + "My Disk/in/deep", {base + "My Disk/in/deep", base + "link/deep"}},
      {"over at " + base + "over", {base + "over/below"}},
      {to_string(nsvErr), {base + "missing"}}};
  for (auto const& [volume, paths] : cases) {
    for (std::string const& path : paths) EXPECT_EQ(VolumeOf(path), volume) << path;
  }
  EXPECT_EQ(EnumeratedVolumes(),
            " / " + base + "My Disk " + base + "My Disk/in/deep " + base + "over");
  EXPECT_EQ(DiskAt(base + "My Disk/in"), "no volume");
  EXPECT_EQ(DiskAt(base + "My Disk"), "none");
}

TEST_F(Volumes, KeepTheirNumbers) {
  MountTableFile table;
  std::string const at = Folder("at");
  auto const mountTwo = [&](std::string const& device, std::string const& source) {
    table.Clear();
    int const root = table.Add(0, "8:1", "/", "/dev/none1");
    return table.Add(root, device, at, source);
  };
  mountTwo("8:2", "/dev/none2");
  FSVolumeRefNum const root = VolumeNumberOf("/");
  FSVolumeRefNum const first = VolumeNumberOf(at.c_str());
  EXPECT_GT(root, 0);
  EXPECT_GT(first, 0);
  EXPECT_NE(root, first);

  mountTwo("8:3", "/dev/none3");
  FSVolumeRefNum const second = VolumeNumberOf(at.c_str());
  EXPECT_NE(second, first);
  EXPECT_EQ(VolumeNumberOf("/"), root);
  FSRef ref;
  EXPECT_EQ(Root(first, &ref), nsvErr);
  EXPECT_EQ(Root(second, &ref), noErr);

  // File systems without a device share numbers over time.
  mountTwo("8:3", "server:/share");
  EXPECT_NE(VolumeNumberOf(at.c_str()), second);

  // Over the first, which is back; then nothing at all.
  table.Add(mountTwo("8:2", "/dev/none2"), "8:3", at, "/dev/none3");
  EXPECT_EQ(VolumeNumberOf(at.c_str()), second);
  EXPECT_EQ(Root(first, &ref), nsvErr);
  mountTwo("8:2", "/dev/none2");
  EXPECT_EQ(VolumeNumberOf(at.c_str()), first);
  table.Clear();
  EXPECT_EQ(VolumeNumberOf(at.c_str()), 0);
  EXPECT_EQ(Root(first, &ref), nsvErr);
  EXPECT_EQ(EnumeratedVolumes(), "");
}

TEST_F(Volumes, WithoutANameOrUrlAreFailures) {
  MountTableFile table;
  int const root = table.Add(0, "8:1", "/", "/dev/none1");
  table.Add(root, "8:2", Folder("\xFF"), "/dev/none2");
  table.Add(root, "8:3", Folder("last"), "/dev/none3");
  EXPECT_EQ(EnumeratedVolumes(), " / error " + base + "last");
  EXPECT_EQ(VolumeOf(base + "\xFF"), to_string(bdNamErr));
  FSRef ref;
  EXPECT_EQ(Root(VolumeNumberOf((base + "\xFF").c_str()), &ref), noErr);
}

TEST_F(Volumes, RefuseWhatIsNotOffered) {
  FSVolumeInfo info;
  FSRef root;
  struct {
    FSVolumeRefNum number;
    ItemCount index;
    FSVolumeInfoBitmap which;
    FSVolumeInfo* sizes;
    OSErr status;
  } const cases[] = {{VolumeNumberOf("/"), 0, kFSVolInfoSizes, &info, noErr},
                     {VolumeNumberOf("/"), 1, kFSVolInfoSizes, &info, paramErr},
                     {VolumeNumberOf("/"), 0, kFSVolInfoSizes, nullptr, paramErr},
                     {VolumeNumberOf("/"), 0, 0x80, &info, paramErr},
                     {0, 0, kFSVolInfoNone, nullptr, nsvErr},
                     {-1, 0, kFSVolInfoNone, nullptr, nsvErr},
                     {32767, 0, kFSVolInfoNone, nullptr, nsvErr}};
  for (auto const& [number, index, which, sizes, status] : cases) {
    EXPECT_EQ(FSGetVolumeInfo(number, index, nullptr, which, sizes, nullptr, &root), status)
        << number << " " << index << " " << which;
  }
  EXPECT_EQ(CFURLEnumeratorCreateForMountedVolumes(kCFAllocatorDefault, 1, nullptr), nullptr);
}

TEST_F(Volumes, OfMemoryAndBindMountsAreWhatTheyAre) {
  Folder("memory");
  Folder("bound");
  Folder("covered");
  std::string const text = InChild([&]() -> std::string {
    if (!OwnMountTable() || !MountMemory(base + "memory", "size=3m")) return "no mount";
    std::filesystem::create_directory(base + "memory/sub");
    if (!MountBind(base + "memory/sub", base + "bound") || !MountMemory(base + "covered") ||
        !MountMemory(base + "covered", "size=2m")) {
      return "no mount";
    }
    WriteFile(base + "bound/file", std::string(1 << 20, 'x'));
    std::string told;
    for (std::string const name : {"memory", "bound/file", "covered"}) {
      FSVolumeRefNum const number = VolumeNumberOf((base + name).c_str());
      FSVolumeInfo info = {};
      FSGetVolumeInfo(number, 0, nullptr, kFSVolInfoSizes, &info, nullptr, nullptr);
      told += Tell(number) + " " + to_string(info.totalBytes >> 20) + "/" +
              to_string(info.freeBytes >> 20) + "\n";
    }
    std::string const all = EnumeratedVolumes() + " ";
    auto const isListed = [&](std::string const& path) {
      std::size_t const place = all.find(" " + path + " ");
      return to_string(place != all.npos && all.find(" " + path + " ", place + 1) == all.npos);
    };
    told += isListed("/") + isListed(base + "bound") + isListed(base + "covered") +
            isListed(base + "memory/sub");
    umount2((base + "bound").c_str(), MNT_DETACH);
    return told + " " + DiskAt(base + "memory") + " " + DiskAt(base + "bound");
  });
  if (text == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(text, "memory at " + base + "memory 3/2\nbound at " + base + "bound 3/2\ncovered at " +
                      base + "covered 2/2\n1110 none no volume");
}

// A root that is a mere folder has no line in the kernel's table.
TEST_F(Volumes, OfAChangedRootStandAtIt) {
  Folder("root/proc");
  Folder("root/folder");
  std::string const told = InChild([&]() -> std::string {
    std::string const root = base + "root";
    if (!OwnMountTable() || !MountBind("/proc", root + "/proc")) return "no mount";
    if (chroot(root.c_str()) != 0 || chdir("/") != 0) return "no mount";
    FSRef ref;
    HFSUniStr255 name;
    bool const isRoot =
        Root(VolumeNumberOf("/folder"), &ref, &name) == noErr && std::string(ref.path) == "/";
    return to_string(isRoot) + EnumeratedVolumes();
  });
  if (told == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(told, "1 /proc /");
}

TEST_F(Volumes, OnALoopDeviceHaveItsName) {
  Folder("at");
  std::string const text = InChild([&]() -> std::string {
    std::string const image = base + "image";
    std::string const make = "truncate -s 4M " + image + " && mkfs.ext4 -q -m 25 " + image;
    std::string const quiet = " >/dev/null 2>&1";
    if (!OwnMountTable()) return "no mount";
    if (std::system((make + quiet).c_str()) != 0) return "no mount";
    if (std::system(("mount -o loop " + image + " " + base + "at" + quiet).c_str()) != 0) {
      return "no mount";
    }
    FSVolumeInfo info = {};
    FSVolumeRefNum const number = VolumeNumberOf((base + "at/lost+found").c_str());
    FSGetVolumeInfo(number, 0, nullptr, kFSVolInfoSizes, &info, nullptr, nullptr);
    struct statvfs facts;
    statvfs((base + "at").c_str(), &facts);
    bool const isMeasured = info.totalBytes == facts.f_blocks * facts.f_frsize &&
                            info.freeBytes == facts.f_bavail * facts.f_frsize;
    return Tell(number) + " " + to_string(isMeasured) + " " + DiskAt(base + "at").substr(0, 4);
  });
  if (text == "no mount") GTEST_SKIP() << "this machine mounts no files as ext4";
  EXPECT_EQ(text, "at at " + base + "at 1 loop");
}

TEST_F(Volumes, AreNumberedByThreadsTogether) {
  constexpr int kThreads = 8;
  MountTableFile table;
  int const root = table.Add(0, "8:1", "/", "/dev/none1");
  std::vector<std::string> places;
  for (int t = 0; t < kThreads; ++t) {
    places.push_back(Folder("shared" + to_string(t)));
    table.Add(root, "9:" + to_string(t), places.back(), "/dev/none");
  }
  std::vector<std::vector<std::string>> told(kThreads);
  OnThreads(kThreads, [&](int t) {
    for (std::string const& place : places) {
      FSVolumeRefNum const number = VolumeNumberOf(place.c_str());
      told[static_cast<std::size_t>(t)].push_back(to_string(number) + Tell(number) +
                                                  EnumeratedVolumes() + DiskAt(place));
    }
  });
  for (auto const& ofThread : told) EXPECT_EQ(ofThread, told[0]);
  for (int t = 0; t < kThreads; ++t) {
    std::string const name = "shared" + to_string(t);
    EXPECT_NE(told[0][static_cast<std::size_t>(t)].find(name + " at " + base + name),
              std::string::npos);
  }
}
