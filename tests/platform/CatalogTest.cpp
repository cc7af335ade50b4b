#include <CoreServices/Files.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <vector>

#include "tests/support/FailingSystemCall.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/Mounts.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using std::to_string;
using namespace std::string_literals;

// Whether the system's listing of directories tells kinds, as not all file systems do.
bool tellsKinds = true;

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
  return FSRenameUnicode(&ref, name.size(), reinterpret_cast<UniChar const*>(name.data()), 0xFFFF,
                         renamed);
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

// In place of the C library's.
extern "C" ssize_t getdents64(int directory, void* buffer, size_t size) {
  ssize_t const read = syscall(SYS_getdents64, directory, buffer, size);
  for (ssize_t at = 0; !tellsKinds && at < read;) {
    auto* const entry = reinterpret_cast<dirent64*>(static_cast<char*>(buffer) + at);
    entry->d_type = DT_UNKNOWN;
    at += entry->d_reclen;
  }
  return read;
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
    EXPECT_EQ(Rename(At("file"), u".."), bdNamErr);
    EXPECT_EQ(ReadFile(At("to-file")), "content");
    // A name that was taken first must be free again where the renaming is refused after all.
    if (!OwnMountTable() || !MountMemory(At("dir")) || !MountBind(At("file"), At("file"))) {
      return "this user may not mount";
    }
    EXPECT_EQ(Rename(At("dir"), u"new"), fBsyErr);
    EXPECT_EQ(Rename(At("file"), u"new"), fBsyErr);
    EXPECT_EQ(std::distance(fs::directory_iterator(root), {}), 6);
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

TEST_F(Catalog, ListsEveryEntryOnceWithItsKind) {
  Fill();
  std::map<std::u16string, UInt16> expected = {
      {u"file", 0},   {u"full", 16},   {u"dir", 16}, {u"to-file", 0},
      {u"to-dir", 0}, {u"to-none", 0}, {u"a/b", 0},  {u"\xFEFF\xD83C\xDFAC\xFFFE", 0}};
  for (char const* const name :
       {"a:b", "\xEF\xBB\xBF\xF0\x9F\x8E\xAC\xEF\xBF\xBE", "x\xED\xA0\x80", "\xC0\xAF", "\xC3"}) {
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
    EXPECT_EQ(List(RefTo(root), atOnce, &end), expected) << atOnce;
    EXPECT_EQ(end, errFSNoMoreItems);
  }
  tellsKinds = false;
  EXPECT_EQ(List(RefTo(root), 7, &end), expected);
  tellsKinds = true;
  EXPECT_EQ(OpenDescriptors(), before);
}
