#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/filesystem/CUDriveInfo.h"
#include "tests/support/InChild.h"
#include "tests/support/MountTableFile.h"
#include "tests/support/Mounts.h"
#include "tests/support/SimulatedDevices.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"
#include "tests/support/ThrownCode.h"

namespace {

using std::to_string;

// "root path: kind", or the error code.
std::string Tell(std::string const& path) {
  auto const text = Make(path);
  CUSharedPtr<CUDriveInfo> const drive = CUDriveInfo::CreateCUDriveInfo(text);
  EXPECT_EQ(CUDriveInfo::CreateCUDriveInfo(*text) == nullptr, drive == nullptr);
  try {
    CUDriveInfo same(*text);
    EXPECT_EQ(Utf8(CUDriveInfo(text).GetName()), Utf8(same.GetName()));
    return Utf8(same.GetName()) + ": " + to_string(same.GetDriveType());
  } catch (unsigned int code) {
    EXPECT_EQ(drive, nullptr);
    return to_string(code);
  }
}

// A machine with a root volume; the rest is the test's.
class SimulatedDrives : public testing::Test {
 protected:
  void SetUp() override {
    if (!SimulatedDevices::CanBeMade()) {
      GTEST_SKIP() << "devices can be simulated only with LD_PRELOAD=libumockdev-preload.so.0";
    }
    devices.emplace();
    table.Add(0, "254:0", "/", "/dev/vda1");
  }

  // Mounts a device at the folder `name`, which is made, and gives the path.
  std::string Mount(std::string const& source, std::string const& name,
                    std::string const& device = "0:99") {
    std::filesystem::create_directories(base + name);
    table.Add(1, device, base + name, source);
    return base + name;
  }

  TemporaryFolder folder;
  std::string base = folder.Path() + "/";
  MountTableFile table;
  std::optional<SimulatedDevices> devices;
};

// The first free number of the registry; it grows when one is not let go.
io_object_t FreeNumber() {
  io_object_t const number = IOServiceGetMatchingService(
      kIOMasterPortDefault, IOBSDNameMatching(kIOMasterPortDefault, 0, "probe"));
  EXPECT_NE(number, 0u);
  IOObjectRelease(number);
  return number;
}

}  // namespace

TEST_F(SimulatedDrives, AreOfTheirKinds) {
  SimulatedDevices& d = *devices;
  std::string const bus = d.Add("pci", "0000:00:1f.2", "", {}, {});
  std::string const usb =
      d.Add("usb", "1-1", bus, {"removable", "unknown"}, {"DEVTYPE", "usb_device"});
  std::string const stick =
      d.AddDisk("sdb", d.Add("scsi", "6:0:0:0", usb, {}, {}), true, {"MAJOR", "8", "MINOR", "33"});
  d.Link("/sys/dev/block/8:33", "../.." + stick.substr(4));
  d.AddPartition("sdb1", stick);
  d.AddPartition("sdc1", d.AddDisk("sdc", d.Add("scsi", "7:0:0:0", usb, {}, {})));
  d.AddPartition("sda1", d.AddDisk("sda", bus));
  d.AddDisk("sdd", bus, false, {"ID_DRIVE_EJECTABLE", "1"});
  d.AddDisk("sr5", bus, false, {"ID_CDROM", "1"});
  d.AddPartition("nvme0n1p2", d.AddDisk("nvme0n1", d.Add("nvme", "nvme0", bus, {}, {})));
  for (std::string const type : {"SD", "MMC"}) {
    std::string const name = "mmcblk" + to_string(type.size());
    d.AddPartition(name + "p1",
                   d.AddDisk(name, d.Add("mmc", "card" + type, bus, {"type", type}, {})));
  }
  auto const addOptical = [&](std::string const& name, SimulatedDevices::Pairs properties) {
    properties.insert(properties.end(), {"ID_CDROM", "1", "ID_CDROM_CD", "1", "ID_CDROM_DVD", "1"});
    return d.AddDisk(name, bus, true, properties);
  };
  addOptical("sr0", {"ID_CDROM_MEDIA", "1", "ID_CDROM_MEDIA_CD", "1"});
  d.AddPartition("sr1p1", addOptical("sr1", {"ID_CDROM_MEDIA_DVD_PLUS_RW", "1"}));
  addOptical("sr2", {"ID_CDROM_MEDIA_BD_RE", "1"});
  addOptical("sr3", {"ID_CDROM_MEDIA_HDDVD_R", "1"});
  addOptical("sr4", {"ID_CDROM_MEDIA_DVD", "0", "ID_CDROM_MEDIA_TRACK_COUNT", "1"});
  for (std::string const name : {"ram0", "loop0"}) d.AddDisk(name, "");
  d.AddDisk("zram11", "", true);
  d.AddDisk("ramble", "");
  d.Link(d.AddDisk("dm-0", "") + "/slaves/sdb1", "../../sdb1");
  std::string const mapped = d.AddDisk("dm-1", "");
  for (std::string const slave : {"sdb", "sdb1"}) d.Link(mapped + "/slaves/" + slave, "../..");
  d.Link("/dev/mapper/secret", "../dm-0");
  d.AddNode("/dev/dm-0");
  d.Link("/dev/disk/by-uuid/1234", "../../sdb1");
  d.AddNode("/dev/sdb1");

  // The kind, the location, and the devices that are of them.
  std::tuple<unsigned int, std::string, std::string> const cases[] = {
      {CUDriveType_CDROM, "Internal", "sr0 sr1 sr1p1 sr2 sr3"},
      {CUDriveType_Fixed, "Internal", "sda1 nvme0n1p2 mmcblk3p1 ramble dm-1"},
      {CUDriveType_Fixed, "External", "sdc1"},
      {CUDriveType_Fixed, "File", "loop0"},
      {CUDriveType_Removable, "Internal", "sr4 sr5 sdd mmcblk2p1"},
      {CUDriveType_Removable, "External", "sdb1 sdb mapper/secret disk/by-uuid/1234 root"},
      {CUDriveType_RAM, "RAM", "ram0 zram11"},
      {CUDriveType_NoBSDDevice, "", "gone"}};
  d.AddDisk("probe", "");
  io_object_t const free = FreeNumber();
  for (auto const& [kind, location, devicesOfKind] : cases) {
    std::istringstream names(devicesOfKind);
    for (std::string name; names >> name;) {
      SCOPED_TRACE(name);
      // What the kernel calls "/dev/root" is known by the number of its device alone.
      std::string const path = Mount("/dev/" + name, "at/" + name, name == "root" ? "8:33" : "0:9");
      EXPECT_EQ(Tell(path), path + ": " + to_string(kind));
      CUDriveInfo drive(Make(path));
      CFHolder<CFStringRef> const bsdName(drive.QueryBSDDevName());
      unsigned int const service = drive.QueryIOServiceByBSDName(bsdName.Get());
      EXPECT_EQ(!bsdName, location.empty());
      EXPECT_EQ(service == 0, location.empty());
      CFHolder<CFStringRef> const found(
          drive.QueryIOPropertyPhysicalInterconnectLocationByIORegistryServiceTree(service));
      EXPECT_EQ(Utf8(found.Get()), location.empty() ? "<null>" : location);
      if (service != 0) IOObjectRelease(service);
      EXPECT_EQ(FreeNumber(), free) << "a service or an iterator was not let go";
    }
  }
  for (std::string const none : {"tmpfs", "/sda1", "server:/dev/sda1"}) {
    std::string const path = Mount(none, "none" + none);
    EXPECT_EQ(Tell(path), path + ": " + to_string(CUDriveType_NoBSDDevice));
  }
}

TEST_F(SimulatedDrives, AreAskedOneDeviceAtATime) {
  std::string const disk = devices->AddDisk("sr0", "", true, {"ID_CDROM_MEDIA_BD", "1"});
  devices->AddPartition("sr0p1", disk, {"ID_CDROM_MEDIA_BD", "1"});
  devices->AddDisk("sda", "");
  CUDriveInfo drive(Make(base));
  auto const serviceOf = [&](std::string const& name) {
    return drive.QueryIOServiceByBSDName(*Make(name));
  };
  for (std::string const& none : {std::string("sr"), std::string(), std::string(300, 's')}) {
    EXPECT_EQ(serviceOf(none), 0u);
  }
  EXPECT_EQ(drive.QueryIOServiceByBSDName(nullptr), 0u);
  unsigned int const whole = serviceOf("sr0"), part = serviceOf("sr0p1"), fixed = serviceOf("sda");
  // Whole and of an optical drive; optical; ejectable; removable.
  std::pair<unsigned int, char const*> const cases[] = {
      {whole, "1111"}, {part, "0111"}, {fixed, "0000"}, {0, "0000"}, {999, "0000"}};
  for (auto const& [service, answers] : cases) {
    EXPECT_EQ(to_string(drive.IsWholeMediaAndCDDriveByIOService(service)) +
                  to_string(drive.IsCDDriveByIORegistryServiceTree(service)) +
                  to_string(drive.IsEjectableByIORegistryServiceTree(service)) +
                  to_string(drive.IsRemovableByIORegistryServiceTree(service)),
              answers);
  }
  EXPECT_EQ(drive.QueryIOPropertyPhysicalInterconnectLocationByIOService(part), nullptr);
  EXPECT_EQ(drive.QueryIOPropertyPhysicalInterconnectLocationByIORegistryServiceTree(999), nullptr);
  EXPECT_TRUE(IOObjectConformsTo(part, "IOMedia") && !IOObjectConformsTo(whole, "IOCDMedia") &&
              !IOObjectConformsTo(whole, "IODVDMedia") && !IOObjectConformsTo(whole, "IOBlock"));

  // The counts of references, and an iterator that outlives its device.
  io_iterator_t ancestors = 0;
  IOOptionBits const upwards = kIORegistryIterateRecursively | kIORegistryIterateParents;
  EXPECT_EQ(IORegistryEntryCreateIterator(part, kIOServicePlane, upwards, &ancestors),
            KERN_SUCCESS);
  EXPECT_EQ(IOObjectRetain(part), KERN_SUCCESS);
  for (bool const isThere : {true, false}) {
    EXPECT_EQ(IOObjectRelease(part), KERN_SUCCESS);
    EXPECT_EQ(IOObjectConformsTo(part, "IOMedia"), isThere);
  }
  EXPECT_EQ(IOObjectRelease(part), KERN_INVALID_NAME);
  EXPECT_EQ(IOObjectRetain(0), KERN_INVALID_NAME);
  devices->Remove(disk);
  io_object_t const parent = IOIteratorNext(ancestors);
  EXPECT_TRUE(IOObjectConformsTo(parent, "IOBDMedia"));
  EXPECT_EQ(IOIteratorNext(ancestors) + IOIteratorNext(parent), 0u);
  for (io_object_t const object : {parent, ancestors, whole, fixed}) {
    EXPECT_EQ(IOObjectRelease(object), KERN_SUCCESS);
  }
}

TEST_F(SimulatedDrives, AreCalledByTheirLabels) {
  std::string const longest(255, 'l');
  using Pairs = SimulatedDevices::Pairs;
  // The properties of the device, its mount point, and the label.
  std::tuple<Pairs, std::string, std::string> const cases[] = {
      {{"ID_FS_LABEL_ENC", "My\\x20\\xc3\\xa4:\\x2fb\\", "ID_FS_LABEL", "My_a"},
       "a",
       "My \xC3\xA4:/b\\"},
      {{"ID_FS_LABEL", "PLAIN"}, "b", "PLAIN"},
      {{}, "sdc", "by link"},
      {{}, "at some place", "at some place"},
      {{"ID_FS_LABEL_ENC", "\\xff"}, "e", "e"},
      {{"ID_FS_LABEL_ENC", longest + "l"}, "f", "f"},
      {{"ID_FS_LABEL_ENC", longest}, "g", longest}};
  devices->AddNode("/dev/sdc");
  devices->Link("/dev/disk/by-label/other", "../../sdq");
  devices->Link("/dev/disk/by-label/by\\x20link", "../../sdc");
  std::string device = "sda";
  for (auto const& [properties, mountPoint, label] : cases) {
    devices->AddDisk(device, "", false, properties);
    CUDriveInfo drive(Make(Mount("/dev/" + device, mountPoint)));
    EXPECT_EQ(Utf8(drive.GetVolumeLabel()), label) << device;
    EXPECT_EQ(Utf8(drive.GetDisplayString()), label) << device;
    ++device.back();
  }
  EXPECT_EQ(Utf8(CUDriveInfo(Make("/")).GetVolumeLabel()), "/");
  devices->AddDisk("vda1", "", false, {"ID_FS_LABEL", "System"});
  EXPECT_EQ(Utf8(CUDriveInfo(Make("/")).GetVolumeLabel()), "System");
}

TEST_F(SimulatedDrives, AreFoundFromAnyPath) {
  devices->AddDisk("sda", "", true);
  std::string const disk = Mount("/dev/sda", "My Disk");
  std::filesystem::create_directories(disk + "/a/b");
  std::filesystem::create_directory(base + "My Disk2");
  std::filesystem::create_symlink("My Disk/a", base + "link");
  WriteFile(disk + "/a/file", "x");
  std::string deep = disk;
  for (int i = 0; i < 3000; ++i) deep += "/x";
  // What is told, and the paths of which it is told.
  std::pair<std::string, std::vector<std::string>> const cases[] = {
      {disk + ": 5",
       {disk, disk + "/a/file", disk + "/a/file/x", disk + "/missing/x/y/", deep, base + "link/b"}},
      {"/: 2", {base + "My Disk2", base + "missing", "/missing", "/"}},
      {"1", {"no-slash", "no-slash/deeper", "", "\xFF"}}};
  for (auto const& [told, paths] : cases) {
    for (std::string const& path : paths) EXPECT_EQ(Tell(path), told) << path.substr(0, 80);
  }
  EXPECT_TRUE(CUDriveInfo(Make(base + "My Disk2")).IsSysytemDrive());
  EXPECT_FALSE(CUDriveInfo(Make(disk)).IsSysytemDrive());

  CUSharedPtr<CUStringMac> const null;
  EXPECT_EQ(CUDriveInfo::CreateCUDriveInfo(null), nullptr);
  EXPECT_EQ(ThrownCode([&] { CUDriveInfo drive(null); }), 2u);
  table.Clear();
  EXPECT_EQ(Tell(disk), "1");
}

TEST_F(SimulatedDrives, FollowWhatIsMountedNow) {
  devices->AddDisk("sda", "");
  Mount("/dev/sdx", "no URL: \xFF");
  std::string const disk = Mount("/dev/sda", "disk");
  CUDriveInfo drive(Make(disk + "/missing"));
  struct statvfs facts;
  ASSERT_EQ(statvfs(disk.c_str(), &facts), 0);
  EXPECT_EQ(Utf8(drive.Description()).find("11CUDriveInfo(0x"), 0u);
  EXPECT_EQ(Utf8(drive.Description()), Utf8(drive.CUObject::Description()) + disk);
  EXPECT_TRUE(drive.IsReady());
  EXPECT_EQ(drive.GetTotalSize(), facts.f_blocks * facts.f_frsize);
  EXPECT_GT(drive.GetTotalFreeSize(), 0u);
  EXPECT_LT(drive.GetTotalFreeSize(), drive.GetTotalSize());

  // Its place now lies on the root volume, which is what label and sizes then tell of.
  table.Clear();
  table.Add(0, "254:0", "/", "/dev/vda1");
  EXPECT_FALSE(drive.IsReady());
  EXPECT_EQ(Utf8(drive.GetVolumeLabel()), "/");
  EXPECT_EQ(Utf8(drive.GetName()), disk);
  EXPECT_EQ(drive.GetDriveType(), CUDriveType_Fixed);
  std::filesystem::remove(disk);
  EXPECT_EQ(drive.GetVolumeLabel(), nullptr);
  EXPECT_EQ(drive.GetTotalSize() + drive.GetTotalFreeSize(), 0u);
}

TEST(CUDriveInfo, StandsForADriveThatIsNotMounted) {
  std::string const missing = "/Volumes/Quillmere Missing";
  ASSERT_FALSE(std::filesystem::exists(missing));
  for (std::string const behind : {"", "/", "/a/b"}) {
    std::string const name = behind == "/" ? missing + "/" : missing;
    EXPECT_EQ(Tell(missing + behind), name + ": 6");
    CUDriveInfo drive(Make(missing + behind));
    EXPECT_EQ(Utf8(drive.Description()), Utf8(drive.CUObject::Description()) + name);
    EXPECT_FALSE(drive.IsReady() || drive.IsSysytemDrive());
    EXPECT_EQ(drive.GetTotalSize() + drive.GetTotalFreeSize(), 0u);
    EXPECT_EQ(drive.GetDisplayString(), nullptr);
    EXPECT_EQ(drive.QueryBSDDevName(), nullptr);
  }
}

// In a tree of its own, where "/Volumes" exists.
TEST(CUDriveInfo, KeepsTheKindOfADriveThatIsMountedLater) {
  TemporaryFolder const folder;
  std::string const text = InChild([&]() -> std::string {
    std::string const tree = folder.Path();
    if (!OwnMountTable() || !MountMemory(tree, "size=2m")) return "no mount";
    for (char const* const name : {"/proc", "/Volumes"}) {
      std::filesystem::create_directory(tree + name);
    }
    if (!MountBind("/proc", tree + "/proc") || chroot(tree.c_str()) != 0 || chdir("/") != 0) {
      return "no mount";
    }
    std::string told = Tell("/Volumes") + " " + Tell("/Volumes/Disk/file");
    CUDriveInfo early(Make("/Volumes/Disk"));
    std::filesystem::create_directory("/Volumes/Disk");
    told += " " + to_string(early.IsReady()) + Tell("/Volumes/Disk") + " ";
    if (!MountMemory("/Volumes/Disk", "size=5m")) return "no mount";
    return told + to_string(early.IsReady()) + to_string(early.GetDriveType()) + " " +
           to_string(early.GetTotalSize() >> 20) + " " + Utf8(early.GetVolumeLabel()) + " " +
           Tell("/Volumes/Disk/file") + " " +
           to_string(CUDriveInfo(Make("/Volumes/Disk")).IsSysytemDrive()) +
           to_string(CUDriveInfo(Make("/Volumes/Missing/..")).IsReady());
  });
  if (text == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(text, "/: 2 /Volumes/Disk: 6 0/: 2 16 5 Disk /Volumes/Disk: 2 00");
}

// On the real devices, since the simulation is not made for threads.
TEST(CUDriveInfo, MayBeSharedByThreads) {
  CUDriveInfo drive(Make("/"));
  auto const ask = [&] {
    CFHolder<CFStringRef> const name(drive.QueryBSDDevName());
    unsigned int const service = drive.QueryIOServiceByBSDName(name.Get());
    bool const isOptical = drive.IsCDDriveByIORegistryServiceTree(service);
    if (service != 0) IOObjectRelease(service);
    return Tell("/") + Utf8(drive.GetName()) + Utf8(drive.GetDisplayString()) +
           to_string(drive.IsReady()) + to_string(drive.GetTotalSize()) + to_string(isOptical);
  };
  std::string const alone = ask();
  std::string told[8];
  OnThreads(8, [&](int thread) {
    for (int round = 0; round < 10; ++round) told[thread] += ask() == alone ? "" : "!";
  });
  for (std::string const& text : told) EXPECT_EQ(text, "") << alone;
}
