#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <DiskArbitration/DiskArbitration.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <filesystem>
#include <string>
#include <vector>

#include "QuillmereLib/core/CFHolder.h"
#include "platform/linux/VolumeNumbers.h"
#include "tests/support/InChild.h"
#include "tests/support/MountTableFile.h"
#include "tests/support/Mounts.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"

namespace {

using std::to_string;

// "name at root", or the status.
std::string Tell(FSVolumeRefNum volume) {
  FSRef root;
  HFSUniStr255 name;
  OSErr const status = FSGetVolumeInfo(volume, 0, nullptr, kFSVolInfoNone, nullptr, &name, &root);
  if (status != noErr) return to_string(status);
  CUStringMac text(name.unicode, name.length * 2u);
  return Utf8(text) + " at " + root.path;
}

// That of the volume that the path is on, and its total and free bytes in units of so many.
std::string TellAt(std::string const& path, UInt64 unit) {
  FSVolumeRefNum const volume = VolumeNumberOf(path.c_str());
  FSVolumeInfo info = {};
  FSGetVolumeInfo(volume, 0, nullptr, kFSVolInfoSizes, &info, nullptr, nullptr);
  return Tell(volume) + " " + to_string(info.totalBytes / unit) + "/" +
         to_string(info.freeBytes / unit);
}

// The mount points of all volumes, each between blanks.
std::string EnumeratedVolumes() {
  CFHolder<CFURLEnumeratorRef> const volumes(
      CFURLEnumeratorCreateForMountedVolumes(kCFAllocatorDefault, 0, nullptr));
  std::string paths = " ";
  for (;;) {
    CFURLRef url = nullptr;
    CFURLEnumeratorResult const result = CFURLEnumeratorGetNextURL(volumes.Get(), &url, nullptr);
    if (result == kCFURLEnumeratorEnd) return paths;
    CFHolder<CFStringRef> const path(result == kCFURLEnumeratorError
                                         ? nullptr
                                         : CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle));
    paths += Utf8(path.Get()) + " ";
  }
}

// The device of the volume mounted at the path, "none", or "no volume".
std::string DiskAt(std::string const& path) {
  CFHolder<CFURLRef> const url(
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, *Make(path), kCFURLPOSIXPathStyle, true));
  CFHolder<DASessionRef> const session(DASessionCreate(kCFAllocatorDefault));
  CFHolder<DADiskRef> const disk(
      DADiskCreateFromVolumePath(kCFAllocatorDefault, session.Get(), url.Get()));
  if (!disk) return "no volume";
  char const* const name = DADiskGetBSDName(disk.Get());
  return name != nullptr ? name : "none";
}

class Volumes : public testing::Test {
 protected:
  // A folder for `name`, made.
  std::string Folder(std::string const& name) {
    std::filesystem::create_directories(base + name);
    return base + name;
  }

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
  // Of what no text can name, nothing but the number is known.
  table.Add(root, "8:8", Folder("\xFF"), "/dev/none8");
  table.Add(root, "8:9", Folder("last"), "/dev/none9");
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
      {to_string(bdNamErr), {base + "\xFF"}},
      {to_string(nsvErr), {base + "missing"}}};
  for (auto const& [volume, paths] : cases) {
    for (std::string const& path : paths) {
      EXPECT_EQ(Tell(VolumeNumberOf(path.c_str())), volume) << path;
    }
  }
  EXPECT_NE(TellAt(base + "\xFF", 1), to_string(bdNamErr) + " 0/0");
  EXPECT_EQ(EnumeratedVolumes(), " / " + base + "My Disk " + base + "My Disk/in/deep " + base +
                                     "over <null> " + base + "last ");
  EXPECT_EQ(DiskAt(base + "My Disk/in"), "no volume");
  EXPECT_EQ(DiskAt(base + "My Disk"), "none");
}

TEST_F(Volumes, KeepTheirNumbers) {
  MountTableFile table;
  std::string const at = Folder("at");
  auto const mount = [&](std::string const& device, std::string const& source) {
    table.Clear();
    table.Add(table.Add(0, "8:1", "/", "/dev/none1"), device, at, source);
    return VolumeNumberOf(at.c_str());
  };
  std::string const isGone = to_string(nsvErr), isThere = "at at " + at;
  FSVolumeRefNum const first = mount("8:2", "/dev/none2"), root = VolumeNumberOf("/");
  EXPECT_GT(root, 0);
  EXPECT_TRUE(first > 0 && first != root);
  FSVolumeRefNum const second = mount("8:3", "/dev/none3");
  EXPECT_NE(second, first);
  EXPECT_EQ(VolumeNumberOf("/"), root);
  EXPECT_EQ(Tell(first), isGone);
  EXPECT_EQ(Tell(second), isThere);
  // File systems without a device share numbers over time.
  EXPECT_NE(mount("8:3", "server:/share"), second);

  // Back, then under the second, then gone with all others.
  EXPECT_EQ(mount("8:2", "/dev/none2"), first);
  EXPECT_EQ(Tell(first), isThere);
  table.Add(2, "8:3", at, "/dev/none3");
  EXPECT_EQ(VolumeNumberOf(at.c_str()), second);
  EXPECT_EQ(Tell(first), isGone);
  table.Clear();
  EXPECT_EQ(Tell(first), isGone);
  EXPECT_EQ(VolumeNumberOf(at.c_str()), 0);
  EXPECT_EQ(EnumeratedVolumes(), " ");
}

TEST_F(Volumes, RefuseWhatIsNotOffered) {
  FSVolumeRefNum const number = VolumeNumberOf("/");
  FSVolumeInfo info;
  auto const ask = [&](ItemCount index, FSVolumeInfoBitmap which, FSVolumeInfo* sizes) {
    return FSGetVolumeInfo(number, index, nullptr, which, sizes, nullptr, nullptr);
  };
  EXPECT_EQ(ask(1, kFSVolInfoSizes, &info), paramErr);
  EXPECT_EQ(ask(0, kFSVolInfoSizes, nullptr), paramErr);
  EXPECT_EQ(ask(0, 0x80, &info), paramErr);
  EXPECT_EQ(Tell(0) + Tell(32767), "-35-35");
  EXPECT_EQ(CFURLEnumeratorCreateForMountedVolumes(kCFAllocatorDefault, 1, nullptr), nullptr);
}

TEST_F(Volumes, OfMemoryAndBindMountsAreWhatTheyAre) {
  std::string const memory = Folder("memory"), bound = Folder("bound"), covered = Folder("covered");
  std::string const skipped = ChecksInChild([&] {
    if (!OwnMountTable() || !MountMemory(memory, "size=3m") || !MountBind(memory, bound) ||
        !MountMemory(covered) || !MountMemory(covered, "size=2m")) {
      return "no mount";
    }
    WriteFile(bound + "/file", std::string(1 << 20, 'x'));
    EXPECT_EQ(TellAt(memory, 1 << 20), "memory at " + memory + " 3/2");
    EXPECT_EQ(TellAt(bound + "/file", 1 << 20), "bound at " + bound + " 3/2");
    EXPECT_EQ(TellAt(covered, 1 << 20), "covered at " + covered + " 2/2");
    std::string const all = EnumeratedVolumes();
    for (std::string const& path : {std::string("/"), bound, covered}) {
      EXPECT_NE(all.find(" " + path + " "), all.npos);
      EXPECT_EQ(all.find(" " + path + " "), all.rfind(" " + path + " "));
    }
    umount2(bound.c_str(), MNT_DETACH);
    EXPECT_EQ(DiskAt(memory) + " " + DiskAt(bound), "none no volume");
    return "";
  });
  if (skipped == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(skipped, "");
}

// A root that is a mere folder has no line in the kernel's table.
TEST_F(Volumes, OfAChangedRootStandAtIt) {
  Folder("root/proc");
  Folder("root/folder");
  std::string const told = InChild([&]() -> std::string {
    std::string const root = base + "root";
    if (!OwnMountTable() || !MountBind("/proc", root + "/proc")) return "no mount";
    if (chroot(root.c_str()) != 0 || chdir("/") != 0) return "no mount";
    std::string const volume = Tell(VolumeNumberOf("/folder"));
    bool const isListed = EnumeratedVolumes().find(" / ") != std::string::npos;
    return volume.substr(volume.find(" at ")) + (isListed ? ", listed" : ", missing");
  });
  if (told == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(told, " at /, listed");
}

TEST_F(Volumes, OnALoopDeviceHaveItsName) {
  std::string const at = Folder("at"), image = base + "image";
  std::string const skipped = ChecksInChild([&] {
    std::string const commands = "(truncate -s 4M " + image + " && mkfs.ext4 -q -m 25 " + image +
                                 " && mount -o loop " + image + " " + at + ") >/dev/null 2>&1";
    if (!OwnMountTable() || std::system(commands.c_str()) != 0) return "no mount";
    struct statvfs facts;
    statvfs(at.c_str(), &facts);
    EXPECT_EQ(TellAt(at + "/lost+found", facts.f_frsize),
              "at at " + at + " " + to_string(facts.f_blocks) + "/" + to_string(facts.f_bavail));
    EXPECT_EQ(DiskAt(at).substr(0, 4), "loop");
    return "";
  });
  if (skipped == "no mount") GTEST_SKIP() << "this machine mounts no files as ext4";
  EXPECT_EQ(skipped, "");
}

TEST_F(Volumes, AreNumberedByThreadsTogether) {
  MountTableFile table;
  int const root = table.Add(0, "8:1", "/", "/dev/none1");
  std::string const names[] = {"a", "b", "c", "d", "e", "f", "g", "h"};
  for (std::string const& name : names) table.Add(root, "9:1", Folder(name), "/dev/none");
  std::string told[8];
  OnThreads(8, [&](int thread) {
    for (std::string const& name : names) {
      FSVolumeRefNum const number = VolumeNumberOf((base + name).c_str());
      told[thread] += to_string(number) + Tell(number) + EnumeratedVolumes() + DiskAt(base + name);
    }
  });
  for (std::string const& ofThread : told) EXPECT_EQ(ofThread, told[0]);
  for (std::string const& name : names) {
    EXPECT_NE(told[0].find(name + " at " + base + name), std::string::npos);
  }
}
