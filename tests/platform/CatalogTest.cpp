#include <CoreServices/Files.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <map>
#include <vector>

#include "tests/support/DirectoryReads.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/Mounts.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using std::to_string;
using namespace std::string_literals;

FSRef RefTo(std::string const& path) {
  FSRef ref = {};
  EXPECT_EQ(FSPathMakeRefWithOptions(reinterpret_cast<UInt8 const*>(path.c_str()),
                                     kFSPathMakeRefDoNotFollowLeafSymlink, &ref, nullptr),
            noErr)
      << path;
  return ref;
}

OSErr Delete(std::string const& path) {
  FSRef const ref = RefTo(path);
  return FSDeleteObject(&ref);
}

OSErr Rename(std::string const& path, std::u16string const& name, FSRef* renamed = nullptr) {
  FSRef const ref = RefTo(path);
  std::vector<UniChar> const units(name.begin(), name.end());
  return FSRenameUnicode(&ref, units.size(), units.data(), 0xFFFF, renamed);
}

OSErr CreateDirectory(FSRef const& parent, std::u16string const& name, FSRef* created = nullptr) {
  std::vector<UniChar> const units(name.begin(), name.end());
  return FSCreateDirectoryUnicode(&parent, units.size(), units.data(), kFSCatInfoNone, nullptr,
                                  created, nullptr, nullptr);
}

// As on a kernel, or a file system, that does not know how to rename without replacing.
bool DenyRenameat2(unsigned error) {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog const filter = {sizeof program / sizeof *program, program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// Every name with its node flags, read `atOnce` entries a call, and the status that ended it.
std::map<std::u16string, UInt16> List(FSRef const& ref, ItemCount atOnce, OSErr* end) {
  std::map<std::u16string, UInt16> entries;
  FSIterator iterator = nullptr;
  *end = FSOpenIterator(&ref, kFSIterateFlat, &iterator);
  std::vector<FSCatalogInfo> infos(atOnce);
  std::vector<HFSUniStr255> names(atOnce);
  while (*end == noErr) {
    ItemCount count = 99;
    Boolean changed = true;
    *end = FSGetCatalogInfoBulk(iterator, atOnce, &count, &changed, kFSCatInfoNodeFlags,
                                infos.data(), nullptr, nullptr, names.data());
    EXPECT_TRUE(!changed && count <= atOnce && (count == atOnce || *end != noErr));
    for (ItemCount i = 0; i < count; ++i) {
      std::u16string const name(names[i].unicode, names[i].unicode + names[i].length);
      EXPECT_TRUE(entries.emplace(name, infos[i].nodeFlags).second);
    }
  }
  if (iterator != nullptr) FSCloseIterator(iterator);
  return entries;
}

class Catalog : public testing::Test {
 protected:
  // A file, an empty and a full directory, and links to these and to nothing.
  void Fill() const {
    WriteFile(At("file"), "content");
    fs::create_directories(At("full/inner"));
    fs::create_directory(At("dir"));
    for (char const* const name : {"file", "dir", "nothing"}) {
      fs::create_symlink(name, At("to-"s + name));
    }
  }
  std::string At(std::string const& name) const { return root + "/" + name; }

  TemporaryFolder const folder;
  std::string const root = fs::canonical(folder.Path());
};

}  // namespace

TEST_F(Catalog, RefersToALinkItselfWhereAsked) {
  Fill();
  // What each leads to and whether as a directory, or the status that it fails with.
  std::pair<std::string, std::string> const cases[] = {
      {At("file"), At("file 0")},
      {At("dir//"), At("dir 1")},
      {At("to-file"), At("to-file 0")},
      {At("to-dir"), At("to-dir 0")},
      {At("to-dir//"), At("to-dir 0")},
      {At("to-nothing"), At("to-nothing 0")},
      {At("to-dir/."), At("dir 1")},
      {At("to-dir/.."), root + " 1"},
      {At("to-dir/../file"), At("to-dir/../file 0")},
      {At("to-file/"), "-120"},
      {At("to-nothing/"), "-120"},
      {At("nothing"), "-43"},
      {"", "-43"}};
  for (auto const& [path, expected] : cases) {
    FSRef ref;
    Boolean isDirectory = 7;
    OSStatus const status =
        FSPathMakeRefWithOptions(reinterpret_cast<UInt8 const*>(path.c_str()),
                                 kFSPathMakeRefDoNotFollowLeafSymlink, &ref, &isDirectory);
    EXPECT_EQ(status == noErr ? ref.path + " "s + to_string(isDirectory) : to_string(status),
              expected)
        << path;
  }
  FSRef ref;
  EXPECT_EQ(FSPathMakeRefWithOptions(reinterpret_cast<UInt8 const*>("/"), 2, &ref, nullptr),
            paramErr);
}

TEST_F(Catalog, DeletesTheEntryAndNothingBehindIt) {
  Fill();
  EXPECT_EQ(Delete(At("full")), fBsyErr);
  for (char const* const name : {"to-dir/", "to-file", "to-nothing", "full/inner", "full"}) {
    EXPECT_EQ(Delete(At(name)), noErr) << name;
    EXPECT_FALSE(fs::exists(fs::symlink_status(At(name)))) << name;
  }
  EXPECT_TRUE(fs::exists(At("file")) && fs::exists(At("dir")));
  FSRef const stale = RefTo(At("file"));
  EXPECT_EQ(FSDeleteObject(&stale), noErr);
  EXPECT_EQ(FSDeleteObject(&stale), fnfErr);
  EXPECT_EQ(Delete("/proc"), fBsyErr);
  EXPECT_EQ(FSDeleteObject(nullptr), paramErr);
}

TEST_F(Catalog, NeverReplacesByRenaming) {
  auto const work = [this](unsigned denied) {
    std::string faults;
    auto const expect = [&faults](auto const& actual, auto const& expected, std::string const& of) {
      if (actual != expected) faults += of + " ";
    };
    Fill();
    if (denied != 0 && !DenyRenameat2(denied)) return "no filter"s;
    for (std::string const from : {"file", "dir", "to-dir", "to-nothing"}) {
      for (std::u16string const& to : {u"file"s, u"dir"s, u"full"s, u"to-file"s, u"to-nothing"s}) {
        bool const isOwn = std::string(to.begin(), to.end()) == from;
        expect(Rename(At(from), to), isOwn ? noErr : dupFNErr, from + " to another");
      }
    }
    FSRef renamed = {};
    for (std::string const from : {"file", "full", "to-dir", "to-nothing"}) {
      expect(Rename(At(from), u"\xE4/new", &renamed), noErr, from);
      expect(renamed.path, At("\xC3\xA4:new"), from + "'s reference");
      expect(Rename(renamed.path, std::u16string(from.begin(), from.end())), noErr, from + " back");
    }
    for (std::u16string const& bad :
         {u""s, u"a:b"s, u".."s, u"\xD800"s, std::u16string(256, 'n')}) {
      expect(Rename(At("file"), bad), bdNamErr, "bad name " + to_string(bad.size()));
    }
    expect(ReadFile(At("to-file")), "content"s, "content");
    expect(fs::read_symlink(At("to-nothing")), "nothing", "link");
    FSRef const stale = RefTo(At("dir"));
    fs::remove(stale.path);
    UniChar const name[] = {'x'};
    expect(FSRenameUnicode(&stale, 1, name, 0xFFFF, nullptr), fnfErr, "stale");
    auto const left = std::distance(fs::directory_iterator(root), {});
    fs::remove_all(root);
    fs::create_directory(root);
    return faults + to_string(left);
  };
  EXPECT_EQ(work(0), "5");
  for (unsigned const denied : {unsigned{EINVAL}, unsigned{ENOSYS}}) {
    EXPECT_EQ(InChild([&] { return work(denied); }), "5") << denied;
  }
}

// The reservation of a name must not stay behind where the renaming is refused after all.
TEST_F(Catalog, LeavesNoReservationBehind) {
  fs::create_directory(At("mounted"));
  WriteFile(At("file"), "");
  std::string const text = InChild([&] {
    if (!OwnMountTable() || !MountMemory(At("mounted")) || !MountBind(At("file"), At("file"))) {
      return "no mount"s;
    }
    if (!DenyRenameat2(EINVAL)) return "no filter"s;
    std::string statuses;
    for (char const* const name : {"mounted", "file"}) {
      statuses += to_string(Rename(At(name), u"new")) + " ";
    }
    return statuses + to_string(fs::exists(At("new")));
  });
  if (text == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(text, "-47 -47 0");
}

TEST_F(Catalog, CreatesDirectories) {
  Fill();
  FSRef parent = RefTo(root);
  mode_t const mask = umask(027);
  FSRef created = {};
  EXPECT_EQ(CreateDirectory(parent, u"12/30 \xE4", &created), noErr);
  umask(mask);
  EXPECT_EQ(created.path, At("12:30 \xC3\xA4"));
  struct stat facts = {};
  EXPECT_EQ(lstat(created.path, &facts), 0);
  EXPECT_EQ(facts.st_mode, mode_t{S_IFDIR | 0750});
  for (char16_t const* const name : {u"file", u"dir", u"to-nothing"}) {
    EXPECT_EQ(CreateDirectory(parent, name), dupFNErr);
  }
  for (std::u16string const& name : {u""s, u".."s, u"a:b"s, std::u16string(256, u'n')}) {
    EXPECT_EQ(CreateDirectory(parent, name), bdNamErr);
  }
  EXPECT_EQ(CreateDirectory(RefTo(At("file")), u"x"), dirNFErr);
  fs::remove(created.path);
  EXPECT_EQ(CreateDirectory(created, u"x"), fnfErr);
}

TEST_F(Catalog, TellsSizesKindsDatesAndVolumes) {
  Fill();
  // 2020-01-01T00:00:00.5Z.
  timespec const times[] = {{0, UTIME_OMIT}, {1577836800, 500000000}};
  ASSERT_EQ(utimensat(AT_FDCWD, At("file").c_str(), times, 0), 0);
  WriteFile(At("full/sparse"), "x");
  ASSERT_EQ(truncate(At("full/sparse").c_str(), SInt64{5} << 30), 0);
  constexpr FSCatalogInfoBitmap kAll = kFSCatInfoNodeFlags | kFSCatInfoVolume |
                                       kFSCatInfoCreateDate | kFSCatInfoContentMod |
                                       kFSCatInfoDataSizes;
  auto const infoOf = [](std::string const& path, FSCatalogInfoBitmap which) {
    FSCatalogInfo info;
    std::memset(static_cast<void*>(&info), 7, sizeof info);
    FSRef const ref = RefTo(path);
    EXPECT_EQ(FSGetCatalogInfo(&ref, which, &info, nullptr, nullptr, nullptr), noErr) << path;
    return info;
  };
  FSCatalogInfo const file = infoOf(At("file"), kAll);
  EXPECT_EQ(file.nodeFlags, 0);
  EXPECT_EQ(file.dataLogicalSize, 7u);
  EXPECT_EQ((UInt64{file.contentModDate.highSeconds} << 32) + file.contentModDate.lowSeconds,
            1577836800u + UInt64{2082844800});
  EXPECT_EQ(file.contentModDate.fraction, 0x8000);
  struct statx facts = {};
  statx(AT_FDCWD, At("file").c_str(), 0, STATX_BTIME, &facts);
  EXPECT_EQ(file.createDate.lowSeconds, static_cast<UInt32>(facts.stx_btime.tv_sec + 2082844800));
  FSCatalogInfo const sparse = infoOf(At("full/sparse"), kFSCatInfoDataSizes);
  EXPECT_EQ(sparse.dataLogicalSize, UInt64{5} << 30);
  EXPECT_LT(sparse.dataPhysicalSize, UInt64{1} << 20);
  EXPECT_EQ(sparse.volume, 0x0707);
  EXPECT_EQ(infoOf(At("dir"), kAll).nodeFlags, kFSNodeIsDirectoryMask);
  FSCatalogInfo const link = infoOf(At("to-dir"), kAll);
  EXPECT_EQ(link.nodeFlags, 0);
  EXPECT_EQ(link.dataLogicalSize, 0u);
  EXPECT_EQ(link.volume, file.volume);
  FSCatalogInfo const kernel = infoOf("/proc", kFSCatInfoVolume | kFSCatInfoCreateDate);
  EXPECT_NE(kernel.volume, file.volume);
  EXPECT_EQ(kernel.createDate.highSeconds + kernel.createDate.lowSeconds, 0u);

  FSRef const stale = RefTo(At("file"));
  fs::remove(stale.path);
  FSCatalogInfo info;
  FSRef other;
  EXPECT_EQ(FSGetCatalogInfo(&stale, 0, &info, nullptr, nullptr, nullptr), fnfErr);
  EXPECT_EQ(FSGetCatalogInfo(&stale, 1, &info, nullptr, nullptr, nullptr), paramErr);
  EXPECT_EQ(FSGetCatalogInfo(&stale, 2, nullptr, nullptr, nullptr, nullptr), paramErr);
  EXPECT_EQ(FSGetCatalogInfo(&stale, 2, &info, nullptr, nullptr, &other), paramErr);
}

TEST_F(Catalog, ListsEveryEntryOnceWithItsKind) {
  Fill();
  std::map<std::u16string, UInt16> expected = {
      {u"file", 0},   {u"full", 16},      {u"dir", 16}, {u"to-file", 0},
      {u"to-dir", 0}, {u"to-nothing", 0}, {u"a/b", 0},  {u"\xFEFF\xD83C\xDFAC\xFFFE", 0},
      {u"...", 0}};
  for (char const* const name : {"a:b", "\xEF\xBB\xBF\xF0\x9F\x8E\xAC\xEF\xBF\xBE", "...", "\xFF",
                                 "x\xED\xA0\x80", "\xC0\xAF", "\xC3"}) {
    WriteFile(At(name), "");
  }
  // More than the buffer holds at once.
  for (int i = 0; i < 400; ++i) {
    std::string const name = to_string(i) + std::string(255 - to_string(i).size(), 'n');
    ASSERT_EQ(mkfifo(At(name).c_str(), 0600), 0);
    expected[std::u16string(name.begin(), name.end())] = 0;
  }
  long const before = OpenDescriptors();
  OSErr end = noErr;
  for (ItemCount const atOnce : {1ul, 7ul, 1000ul}) {
    EXPECT_EQ(List(RefTo(root), atOnce, &end), expected) << atOnce;
    EXPECT_EQ(end, errFSNoMoreItems);
    // Some file systems do not tell kinds.
    DirectoryReads const altered(DirectoryReads::WithoutKinds);
    EXPECT_EQ(List(RefTo(root), atOnce, &end), expected) << atOnce;
  }
  {
    DirectoryReads const altered(DirectoryReads::FailingAtSecond);
    std::size_t const some = List(RefTo(root), 1000, &end).size();
    EXPECT_TRUE(some > 50 && some < expected.size()) << some;
    EXPECT_EQ(end, ioErr);
  }
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Catalog, RefusesToIterateWhatItCannot) {
  Fill();
  OSErr end = noErr;
  for (char const* const name : {"file", "to-dir"}) List(RefTo(At(name)), 1, &end);
  EXPECT_EQ(end, dirNFErr);
  FSRef const dir = RefTo(At("dir"));
  FSIterator iterator = nullptr;
  EXPECT_EQ(FSOpenIterator(&dir, 1, &iterator), paramErr);
  ASSERT_EQ(FSOpenIterator(&dir, kFSIterateFlat, &iterator), noErr);
  ItemCount count = 9;
  HFSUniStr255 name;
  EXPECT_EQ(FSGetCatalogInfoBulk(iterator, 0, &count, nullptr, 0, nullptr, nullptr, nullptr, &name),
            paramErr);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, 4, nullptr, nullptr, nullptr, &name),
            paramErr);
  // The directory goes while it is read.
  fs::remove(At("dir"));
  for (int again = 0; again < 2; ++again) {
    EXPECT_EQ(
        FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, 0, nullptr, nullptr, nullptr, &name),
        errFSNoMoreItems);
  }
  EXPECT_EQ(FSCloseIterator(iterator), noErr);
  List(dir, 1, &end);
  EXPECT_EQ(end, fnfErr);
  EXPECT_EQ(FSCloseIterator(nullptr), paramErr);
}
