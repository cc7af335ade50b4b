#include <CoreServices/Files.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <vector>

#include "tests/support/ChecksInChild.h"
#include "tests/support/DeniedCall.h"
#include "tests/support/DirectoryReads.h"
#include "tests/support/Files.h"
#include "tests/support/Mounts.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using std::to_string;
using namespace std::string_literals;

constexpr FSCatalogInfoBitmap kAllInfo = kFSCatInfoNodeFlags | kFSCatInfoVolume |
                                         kFSCatInfoCreateDate | kFSCatInfoContentMod |
                                         kFSCatInfoDataSizes;

FSRef RefTo(std::string const& path) {
  FSRef ref = {};
  EXPECT_EQ(FSPathMakeRefWithOptions(reinterpret_cast<UInt8 const*>(path.c_str()),
                                     kFSPathMakeRefDoNotFollowLeafSymlink, &ref, nullptr),
            noErr)
      << path;
  return ref;
}

OSErr Rename(std::string const& path, std::u16string const& name, FSRef* renamed = nullptr) {
  FSRef const ref = RefTo(path);
  std::vector<UniChar> const units(name.begin(), name.end());
  return FSRenameUnicode(&ref, units.size(), units.data(), 0xFFFF, renamed);
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
    *end = FSGetCatalogInfoBulk(iterator, atOnce, &count, nullptr, kFSCatInfoNodeFlags,
                                infos.data(), nullptr, nullptr, names.data());
    EXPECT_TRUE(count == atOnce || (count < atOnce && *end != noErr));
    for (ItemCount i = 0; i < count; ++i) {
      std::u16string const name(names[i].unicode, names[i].unicode + names[i].length);
      EXPECT_TRUE(entries.emplace(name, infos[i].nodeFlags).second);
    }
  }
  FSCloseIterator(iterator);
  return entries;
}

class Catalog : public testing::Test {
 protected:
  void Fill() const {
    WriteFile(At("file"), "content");
    fs::create_directories(At("full/inner"));
    fs::create_directory(At("dir"));
    for (std::string const name : {"file", "dir", "none"}) {
      fs::create_symlink(name, At("to-" + name));
    }
  }
  std::string At(std::string const& name) const { return root + "/" + name; }

  TemporaryFolder const folder;
  std::string const root = fs::canonical(folder.Path());
};

}  // namespace

TEST_F(Catalog, RefersToALinkItselfAndDeletesNoMore) {
  Fill();
  // What each path leads to and whether as a directory, and what deleting that gives.
  struct {
    std::string path, reference;
    int deleted;
  } const cases[] = {{At("to-dir/../file"), At("to-dir/../file 0"), noErr},
                     {At("to-file/"), "-120", 0},
                     {At("to-none/"), "-120", 0},
                     {At("none"), "-43", 0},
                     {At("full//"), At("full 1"), fBsyErr},
                     {At("to-none"), At("to-none 0"), noErr},
                     {At("to-dir/.."), root + " 1", fBsyErr},
                     {At("to-dir//"), At("to-dir 0"), noErr},
                     {At("full/inner/."), At("full/inner 1"), noErr},
                     {"/proc", "/proc 1", fBsyErr}};
  for (auto const& [path, reference, deleted] : cases) {
    FSRef ref;
    Boolean isDirectory = 7;
    OSStatus const status =
        FSPathMakeRefWithOptions(reinterpret_cast<UInt8 const*>(path.c_str()),
                                 kFSPathMakeRefDoNotFollowLeafSymlink, &ref, &isDirectory);
    EXPECT_EQ(status == noErr ? ref.path + " "s + to_string(isDirectory) : to_string(status),
              reference);
    if (status != noErr) continue;
    EXPECT_EQ(FSDeleteObject(&ref), deleted) << path;
    EXPECT_EQ(fs::exists(fs::symlink_status(ref.path)), deleted != noErr) << path;
  }
  EXPECT_TRUE(fs::exists(At("dir")) && fs::exists(At("full")));
}

TEST_F(Catalog, NeverReplacesByRenaming) {
  auto const work = [&](unsigned denied) {
    Fill();
    // As on a kernel, or a file system, that cannot rename without replacing.
    if (denied != 0 && !DenyCall(SYS_renameat2, denied)) return "no call can be denied";
    for (std::string const from : {"file", "dir", "to-dir", "to-none"}) {
      for (std::u16string const& to : {u"file"s, u"dir"s, u"full"s, u"to-file"s, u"to-none"s}) {
        bool const isOwn = std::string(to.begin(), to.end()) == from;
        EXPECT_EQ(Rename(At(from), to), isOwn ? noErr : dupFNErr) << from;
      }
      FSRef renamed = {};
      EXPECT_EQ(Rename(At(from), u"\xE4/new", &renamed), noErr) << from;
      EXPECT_EQ(renamed.path, At("\xC3\xA4:new"));
      EXPECT_EQ(Rename(renamed.path, std::u16string(from.begin(), from.end())), noErr) << from;
    }
    for (auto const& bad : {u""s, u"a:b"s, u".."s, u"\xD800"s, std::u16string(256, u'n')}) {
      EXPECT_EQ(Rename(At("file"), bad), bdNamErr) << bad.size();
    }
    FSRef const stale = RefTo(At("to-none"));
    fs::remove(stale.path);
    UniChar const name = 'x';
    EXPECT_EQ(FSRenameUnicode(&stale, 1, &name, 0xFFFF, nullptr), fnfErr);
    EXPECT_EQ(ReadFile(At("to-file")), "content");
    // A name that was taken first must be free again where the renaming is refused after all.
    if (!OwnMountTable() || !MountMemory(At("dir")) || !MountBind(At("file"), At("file"))) {
      return "this user may not mount";
    }
    EXPECT_EQ(Rename(At("dir"), u"new"), fBsyErr);
    EXPECT_EQ(Rename(At("file"), u"new"), fBsyErr);
    EXPECT_EQ(std::distance(fs::directory_iterator(root), {}), 5);
    return "";
  };
  std::string skipped;
  for (unsigned const denied : {0u, unsigned{EINVAL}, unsigned{ENOSYS}}) {
    std::string const told = ChecksInChild([&] { return work(denied); });
    EXPECT_NE(told, "failed") << denied;
    if (!told.empty()) skipped = told;
    fs::remove_all(root);
    fs::create_directory(root);
  }
  if (!skipped.empty()) GTEST_SKIP() << skipped;
}

TEST_F(Catalog, TellsSizesKindsDatesAndVolumes) {
  Fill();
  // 2020-01-01T00:00:00.5Z.
  timespec const times[] = {{0, UTIME_OMIT}, {1577836800, 500000000}};
  ASSERT_EQ(utimensat(AT_FDCWD, At("file").c_str(), times, 0), 0);
  WriteFile(At("sparse"), "x");
  fs::resize_file(At("sparse"), UInt64{5} << 30);
  auto const infoOf = [](std::string const& path, FSCatalogInfoBitmap which = kAllInfo) {
    FSCatalogInfo info;
    std::memset(static_cast<void*>(&info), 7, sizeof info);
    FSRef const ref = RefTo(path);
    EXPECT_EQ(FSGetCatalogInfo(&ref, which, &info, nullptr, nullptr, nullptr), noErr) << path;
    return info;
  };
  FSCatalogInfo const file = infoOf(At("file")), link = infoOf(At("to-dir"));
  FSCatalogInfo const sparse = infoOf(At("sparse"), kFSCatInfoDataSizes), kernel = infoOf("/proc");
  EXPECT_EQ(file.contentModDate.lowSeconds, 3660681600u);
  EXPECT_EQ(file.contentModDate.fraction, 0x8000);
  struct statx facts = {};
  statx(AT_FDCWD, At("file").c_str(), 0, STATX_BTIME, &facts);
  EXPECT_EQ(file.createDate.lowSeconds, static_cast<UInt32>(facts.stx_btime.tv_sec + 2082844800));
  EXPECT_EQ(kernel.createDate.highSeconds + kernel.createDate.lowSeconds, 0u);
  EXPECT_EQ(file.nodeFlags + link.nodeFlags, 0);
  EXPECT_EQ(kernel.nodeFlags, kFSNodeIsDirectoryMask);
  EXPECT_EQ(file.dataLogicalSize, 7u);
  EXPECT_EQ(link.dataLogicalSize, 0u);
  EXPECT_EQ(sparse.dataLogicalSize, UInt64{5} << 30);
  EXPECT_LT(sparse.dataPhysicalSize, UInt64{1} << 20);
  EXPECT_EQ(sparse.volume, 0x0707) << "was not asked for";
  EXPECT_EQ(link.volume, file.volume);
  EXPECT_NE(kernel.volume, file.volume);

  FSRef const stale = RefTo(At("sparse"));
  fs::remove(stale.path);
  EXPECT_EQ(FSGetCatalogInfo(&stale, 0, nullptr, nullptr, nullptr, nullptr), fnfErr);
  EXPECT_EQ(FSGetCatalogInfo(&stale, 2, nullptr, nullptr, nullptr, nullptr), paramErr);
}

TEST_F(Catalog, ListsEveryEntryOnceWithItsKind) {
  Fill();
  std::map<std::u16string, UInt16> expected = {
      {u"file", 0},    {u"full", 16},  {u"dir", 16},
      {u"to-file", 0}, {u"to-dir", 0}, {u"to-none", 0},
      {u"a/b", 0},     {u"...", 0},    {u"\xFEFF\xD83C\xDFAC\xFFFE", 0}};
  for (char const* const name : {"a:b", "\xEF\xBB\xBF\xF0\x9F\x8E\xAC\xEF\xBF\xBE", "...", "\xFF",
                                 "x\xED\xA0\x80", "\xC0\xAF", "\xC3"}) {
    WriteFile(At(name), "");
  }
  // More than the buffer holds at once.
  for (int i = 1000; i < 1400; ++i) {
    std::string const name = to_string(i) + std::string(251, 'n');
    ASSERT_EQ(mkfifo(At(name).c_str(), 0600), 0);
    expected[std::u16string(name.begin(), name.end())] = 0;
  }
  long const before = OpenDescriptors();
  OSErr end = noErr;
  for (ItemCount const atOnce : {1ul, 7ul, 1000ul}) {
    // Some file systems do not tell kinds.
    for (auto const alteration : {DirectoryReads::None, DirectoryReads::WithoutKinds}) {
      DirectoryReads const altered(alteration);
      EXPECT_EQ(List(RefTo(root), atOnce, &end), expected) << atOnce;
      EXPECT_EQ(end, errFSNoMoreItems);
    }
  }
  {
    DirectoryReads const altered(DirectoryReads::FailingAtSecond);
    std::size_t const some = List(RefTo(root), 1000, &end).size();
    EXPECT_TRUE(some > 50 && some < expected.size()) << some;
    EXPECT_EQ(end, ioErr);
  }
  List(RefTo(At("to-dir")), 1, &end);
  EXPECT_EQ(end, dirNFErr);

  // The directory goes while it is read.
  FSRef const dir = RefTo(At("dir"));
  FSIterator iterator = nullptr;
  ASSERT_EQ(FSOpenIterator(&dir, kFSIterateFlat, &iterator), noErr);
  fs::remove(dir.path);
  ItemCount count = 9;
  EXPECT_EQ(
      FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, 0, nullptr, nullptr, nullptr, nullptr),
      errFSNoMoreItems);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(FSCloseIterator(iterator), noErr);
  EXPECT_EQ(OpenDescriptors(), before);
}
