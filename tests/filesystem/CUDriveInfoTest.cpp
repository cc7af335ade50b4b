#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <umockdev.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/filesystem/CUDriveInfo.h"
#include "tests/support/InChild.h"
#include "tests/support/MountTableFile.h"
#include "tests/support/Mounts.h"
#include "tests/support/Strings.h"
#include "tests/support/ThrownCode.h"

namespace {

namespace fs = std::filesystem;
using std::to_string;

// "root path: kind", or the error code.
std::string Tell(std::string const& path) {
  auto const text = Make(path);
  CUSharedPtr<CUDriveInfo> const drive = CUDriveInfo::CreateCUDriveInfo(text);
  unsigned int const code = ThrownCode([&] { CUDriveInfo same(*text); });
  EXPECT_EQ(drive == nullptr, code != 0);
  if (code != 0) return to_string(code);
  return Utf8(drive->GetName()) + ": " + to_string(drive->GetDriveType());
}

using Pairs = std::vector<std::string>;  // name, value, name, value...

std::vector<gchar*> Pointers(Pairs const& texts) {
  std::vector<gchar*> pointers;
  for (std::string const& text : texts) pointers.push_back(const_cast<gchar*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// A machine with a root volume, whose /sys and /dev hold only what the test adds.
class SimulatedDrives : public testing::Test {
 protected:
  void SetUp() override {
    std::string const loaded = getenv("LD_PRELOAD") == nullptr ? "" : getenv("LD_PRELOAD");
    if (loaded.find("umockdev") == loaded.npos) {
      GTEST_SKIP() << "devices can be simulated only with LD_PRELOAD=libumockdev-preload.so.0";
    }
    testbed = umockdev_testbed_new();
    gchar* const path = umockdev_testbed_get_root_dir(testbed);
    root = path;
    g_free(path);
    table.Add(0, "254:0", "/", "/dev/vda1");
  }
  void TearDown() override { g_clear_object(&testbed); }

  // Gives the path of the new device in /sys. An empty parent is none.
  std::string Add(std::string const& subsystem, std::string const& name, std::string const& parent,
                  Pairs const& attributes, Pairs const& properties) {
    gchar* const path = umockdev_testbed_add_devicev(
        testbed, subsystem.c_str(), name.c_str(), parent.empty() ? nullptr : parent.c_str(),
        Pointers(attributes).data(), Pointers(properties).data());
    std::string const result = path;
    g_free(path);
    return result;
  }

  // A disk, with the kernel's flag of media that can be taken out.
  std::string AddDisk(std::string const& name, std::string const& parent, bool isRemovable = false,
                      Pairs properties = {}) {
    properties.insert(properties.end(), {"DEVTYPE", "disk", "DEVNAME", "/dev/" + name});
    return Add("block", name, parent, {"removable", isRemovable ? "1" : "0"}, properties);
  }
  void AddPartition(std::string const& name, std::string const& disk) {
    Add("block", name, disk, {"partition", "1"},
        {"DEVTYPE", "partition", "DEVNAME", "/dev/" + name});
  }

  // A symbolic link with that absolute path.
  void Link(std::string const& path, std::string const& target) {
    fs::create_directories(fs::path(root + path).parent_path());
    fs::create_symlink(target, root + path);
  }

  // Mounts a device at the folder `name`, which is made, and gives the path.
  std::string Mount(std::string const& source, std::string const& name,
                    std::string const& device = "0:99") {
    fs::create_directories(base + name);
    table.Add(1, device, base + name, source);
    return base + name;
  }

  TemporaryFolder folder;
  std::string base = folder.Path() + "/";
  MountTableFile table;
  UMockdevTestbed* testbed = nullptr;
  std::string root;  // of the files of the simulated machine
};

}  // namespace

TEST_F(SimulatedDrives, AreOfTheirKinds) {
  std::string const bus = Add("pci", "0000:00:1f.2", "", {}, {});
  std::string const usb =
      Add("usb", "1-1", bus, {"removable", "unknown"}, {"DEVTYPE", "usb_device"});
  std::string const stick =
      AddDisk("sdb", Add("scsi", "6:0:0:0", usb, {}, {}), true, {"MAJOR", "8", "MINOR", "33"});
  Link("/sys/dev/block/8:33", "../.." + stick.substr(4));
  AddPartition("sdb1", stick);
  AddPartition("sdc1", AddDisk("sdc", Add("scsi", "7:0:0:0", usb, {}, {})));
  AddPartition("sda1", AddDisk("sda", bus));
  AddDisk("sdd", bus, false, {"ID_DRIVE_EJECTABLE", "1"});
  AddDisk("sr5", bus, false, {"ID_CDROM", "1"});
  for (std::string const type : {"SD", "MMC"}) {
    AddDisk("mmcblk" + type, Add("mmc", "card" + type, bus, {"type", type}, {}));
  }
  auto const addOptical = [&](std::string const& name, Pairs properties) {
    properties.insert(properties.end(), {"ID_CDROM", "1", "ID_CDROM_CD", "1", "ID_CDROM_DVD", "1"});
    return AddDisk(name, bus, true, properties);
  };
  addOptical("sr0", {"ID_CDROM_MEDIA", "1", "ID_CDROM_MEDIA_CD", "1"});
  AddPartition("sr1p1", addOptical("sr1", {"ID_CDROM_MEDIA_DVD_PLUS_RW", "1"}));
  addOptical("sr2", {"ID_CDROM_MEDIA_BD_RE", "1"});
  addOptical("sr4", {"ID_CDROM_MEDIA_DVD", "0", "ID_CDROM_MEDIA_TRACK_COUNT", "1"});
  for (std::string const name : {"ram0", "loop0"}) AddDisk(name, "");
  AddDisk("zram11", "", true);
  Link(AddDisk("dm-0", "") + "/slaves/sdb1", "../../sdb1");
  std::string const mapped = AddDisk("dm-1", "");
  for (std::string const slave : {"sdb", "sdb1"}) Link(mapped + "/slaves/" + slave, "../..");
  Link("/dev/mapper/secret", "../dm-0");
  WriteFile(root + "/dev/dm-0", "");

  // The kind, the location, and the devices that are of them.
  std::tuple<unsigned int, std::string, std::string> const cases[] = {
      {CUDriveType_CDROM, "Internal", "sr0 sr1 sr1p1 sr2"},
      {CUDriveType_Fixed, "Internal", "sda1 mmcblkMMC dm-1"},
      {CUDriveType_Fixed, "External", "sdc1"},
      {CUDriveType_Fixed, "File", "loop0"},
      {CUDriveType_Removable, "Internal", "sr4 sr5 sdd mmcblkSD"},
      {CUDriveType_Removable, "External", "sdb1 sdb mapper/secret root"},
      {CUDriveType_RAM, "RAM", "ram0 zram11"},
      {CUDriveType_NoBSDDevice, "", "gone"}};
  AddDisk("probe", "");
  // The first free number of the registry, which grows when one is not let go.
  auto const freeNumber = [] {
    io_object_t const number = IOServiceGetMatchingService(0, IOBSDNameMatching(0, 0, "probe"));
    IOObjectRelease(number);
    return number;
  };
  io_object_t const free = freeNumber();
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
      EXPECT_EQ(service == 0, location.empty());
      bool const isWholeDisc = kind == CUDriveType_CDROM && name.find('p') == name.npos;
      EXPECT_EQ(drive.IsWholeMediaAndCDDriveByIOService(service), isWholeDisc);
      CFHolder<CFStringRef> const found(
          drive.QueryIOPropertyPhysicalInterconnectLocationByIORegistryServiceTree(service));
      EXPECT_EQ(Utf8(found.Get()), location.empty() ? "<null>" : location);
      if (service != 0) IOObjectRelease(service);
      EXPECT_EQ(freeNumber(), free) << "a service or an iterator was not let go";
    }
  }
  EXPECT_EQ(Tell(Mount("server:/dev/sda1", "share")), base + "share: 2");
}

TEST_F(SimulatedDrives, AreCalledByTheirLabels) {
  std::string const longest(255, 'l');
  // The properties of the device, its mount point, and the label.
  std::tuple<Pairs, std::string, std::string> const cases[] = {
      {{"ID_FS_LABEL_ENC", "My\\x20\\xc3\\xa4:\\x2fb\\", "ID_FS_LABEL", "My_a"},
       "a",
       "My \xC3\xA4:/b\\"},
      {{}, "sdb", "by link"},
      {{"ID_FS_LABEL_ENC", "\\xff"}, "e", "e"},
      {{"ID_FS_LABEL_ENC", longest + "l"}, "f", "f"},
      {{"ID_FS_LABEL_ENC", longest}, "g", longest}};
  Link("/dev/disk/by-label/by\\x20link", "../../sdb");
  WriteFile(root + "/dev/sdb", "");
  std::string device = "sda";
  for (auto const& [properties, mountPoint, label] : cases) {
    AddDisk(device, "", false, properties);
    CUDriveInfo drive(Make(Mount("/dev/" + device, mountPoint)));
    EXPECT_EQ(Utf8(drive.GetDisplayString()), label) << device;
    ++device.back();
  }
}

TEST_F(SimulatedDrives, AreFoundFromAnyPath) {
  AddDisk("sda", "", true);
  std::string const disk = Mount("/dev/sda", "My Disk");
  fs::create_directories(disk + "/a/b");
  fs::create_directory(base + "My Disk2");
  fs::create_symlink("My Disk/a", base + "link");
  WriteFile(disk + "/a/file", "x");
  // What is told, and the paths of which it is told.
  std::pair<std::string, std::vector<std::string>> const cases[] = {
      {disk + ": 5",
       {disk, disk + "/a/file", disk + "/a/file/x", disk + "/missing/x/y/", base + "link/b"}},
      {"/: 2", {base + "My Disk2", base + "missing", "/missing", "/"}},
      {"1", {"no-slash", "no-slash/deeper", "", "\xFF"}}};
  for (auto const& [told, paths] : cases) {
    for (std::string const& path : paths) EXPECT_EQ(Tell(path), told) << path.substr(0, 80);
  }
  EXPECT_TRUE(CUDriveInfo(Make("/")).IsSysytemDrive());
  EXPECT_FALSE(CUDriveInfo(Make(disk)).IsSysytemDrive());
  EXPECT_EQ(ThrownCode([&] { CUDriveInfo drive(CUSharedPtr<CUStringMac>{}); }), 2u);
}

TEST_F(SimulatedDrives, FollowWhatIsMountedNow) {
  AddDisk("sda", "");
  Mount("/dev/sdx", "no URL: \xFF");
  std::string const disk = Mount("/dev/sda", "disk");
  CUDriveInfo drive(Make(disk + "/missing"));
  struct statvfs facts;
  ASSERT_EQ(statvfs(disk.c_str(), &facts), 0);
  EXPECT_TRUE(drive.IsReady());
  EXPECT_EQ(drive.GetTotalSize(), facts.f_blocks * facts.f_frsize);
  EXPECT_TRUE(drive.GetTotalFreeSize() > 0 && drive.GetTotalFreeSize() < drive.GetTotalSize());

  // Its place now lies on the root volume, which is what label and sizes then tell of.
  table.Clear();
  table.Add(0, "254:0", "/", "/dev/vda1");
  EXPECT_FALSE(drive.IsReady());
  EXPECT_EQ(Utf8(drive.GetVolumeLabel()) + Utf8(drive.GetName()), "/" + disk);
  EXPECT_EQ(drive.GetDriveType(), CUDriveType_Fixed);
  fs::remove(disk);
  EXPECT_EQ(drive.GetVolumeLabel(), nullptr);
  EXPECT_EQ(drive.GetTotalSize() + drive.GetTotalFreeSize(), 0u);
}

TEST(CUDriveInfo, StandsForADriveThatIsNotMounted) {
  std::string const missing = "/Volumes/Quillmere Missing";
  CUDriveInfo drive(Make(missing + "/a/b"));
  EXPECT_EQ(Utf8(drive.Description()), Utf8(drive.CUObject::Description()) + missing);
  EXPECT_FALSE(drive.IsReady() || drive.IsSysytemDrive());
  EXPECT_TRUE(drive.GetDisplayString() == nullptr && drive.QueryBSDDevName() == nullptr);
}

// In a tree of its own, where "/Volumes" exists.
TEST(CUDriveInfo, KeepsTheKindOfADriveThatIsMountedLater) {
  TemporaryFolder const folder;
  std::string const text = InChild([&]() -> std::string {
    std::string const tree = folder.Path();
    if (!OwnMountTable() || !MountMemory(tree, "size=2m")) return "no mount";
    for (char const* const name : {"/proc", "/Volumes"}) fs::create_directory(tree + name);
    if (!MountBind("/proc", tree + "/proc") || chroot(tree.c_str()) != 0 || chdir("/") != 0) {
      return "no mount";
    }
    CUDriveInfo early(Make("/Volumes/Disk"));
    fs::create_directory("/Volumes/Disk");
    std::string told = to_string(early.IsReady()) + Tell("/Volumes/Disk") + " ";
    if (!MountMemory("/Volumes/Disk", "size=5m")) return "no mount";
    return told + to_string(early.IsReady()) + to_string(early.GetDriveType()) + " " +
           to_string(early.GetTotalSize() >> 20) + " " + Tell("/Volumes/Disk/file");
  });
  if (text == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(text, "0/: 2 16 5 /Volumes/Disk: 2");
}
