#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <tuple>
#include <vector>

#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUFile.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "QuillmereLib/streams/CUFileStream.h"
#include "tests/support/FailingSystemCall.h"
#include "tests/support/Files.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ThrownCode.h"

namespace {

namespace fs = std::filesystem;

CUSharedPtr<CUStringMac> const kNull;

struct CUFileInfoTest : testing::Test {
  bool IsThere(std::string const& name) const {
    std::error_code tooLong;
    return fs::exists(fs::symlink_status(base + name, tooLong));
  }

  TemporaryFolder const folder;
  std::string const base = folder.Path() + "/";
};

// What stands below the folder, with the contents of its files.
std::string Tree(std::string const& folder) {
  std::string told;
  for (auto const& entry : fs::recursive_directory_iterator(folder)) {
    std::string const path = entry.path();
    told += path + (entry.is_directory() ? "/" : "=" + ReadFile(path)) + "\n";
  }
  return told;
}

}  // namespace

// How paths are followed is the platform's.
TEST_F(CUFileInfoTest, TellsFilesFromDirectories) {
  fs::create_directory(base + "dir");
  for (char const* const name : {"file", "dir/a:b"}) WriteFile(base + name, "");
  for (std::string const name : {"file", "dir", "nowhere"}) {
    fs::create_symlink(name, base + "to-" + name);
  }
  ASSERT_EQ(mkfifo((base + "fifo").c_str(), 0600), 0);
  // Whether they are files, whether directories, and the paths of which that is told.
  std::tuple<bool, bool, std::vector<std::string>> const cases[] = {
      {true, false, {base + "file", base + "dir/a:b", base + "to-file", base + "fifo"}},
      {false, true, {base + "dir/", base + "to-dir", "/"}},
      {false,
       false,
       {base + "dir/a/b", base + "to-nowhere", base + "file/", base + std::string(300, 'n'),
        base + std::string(5000, '/') + "dir", "", "\xFF"}}};
  for (auto const& [isFile, isDirectory, paths] : cases) {
    for (std::string const& path : paths) {
      EXPECT_EQ(CUFile::Exists(Make(path)), isFile) << path.substr(0, 80);
      EXPECT_EQ(CUDirectory::Exists(Make(path)), isDirectory) << path.substr(0, 80);
    }
  }
}

TEST_F(CUFileInfoTest, DeletesFilesAndLinksAlone) {
  fs::create_directory(base + "dir");
  for (char const* const name : {"dir/inside", "file"}) WriteFile(base + name, "x");
  fs::create_symlink("dir", base + "toDir");
  fs::create_symlink("nowhere", base + "dangling");
  std::pair<std::string, unsigned int> const cases[] = {
      {"missing", 0}, {"dir", 7}, {"file/x", 0}, {"file", 0}, {"dangling", 0}, {"toDir", 0}};
  for (auto const& [name, code] : cases) {
    EXPECT_EQ(ThrownCode([path = Make(base + name)] { CUFile::Delete(path); }), code) << name;
    EXPECT_EQ(IsThere(name), code != 0) << name;
  }
  EXPECT_EQ(ReadFile(base + "dir/inside"), "x");
  EXPECT_EQ(ThrownCode([] { CUFile::Delete(kNull); }), 2u);
  EXPECT_EQ(ThrownCode([] { CUFileInfo info(Make("\xFF")); }), 1u) << "the null string";
  // As where another deletes it once it has been looked at.
  unsigned int code = 1;
  CallTrace const trace = RunWithFault(
      {ENOENT, 2}, [&] { code = ThrownCode([&] { CUFile::Delete(Make(base + "dir/inside")); }); });
  if (!trace.isPossible) GTEST_SKIP() << "the kernel does not let system calls be watched";
  EXPECT_STREQ(trace.lastFailed, "unlink");
  EXPECT_EQ(code, 0u);
}

TEST_F(CUFileInfoTest, MeasuresAndDescribesWhatIsThere) {
  WriteFile(base + "file", "");
  fs::resize_file(base + "file", 5ull << 30);
  fs::create_symlink("file", base + "link");
  for (std::string const name : {"file", "link", "missing", ""}) {
    CUFileInfo info(Make(base + name));
    EXPECT_EQ(info.Length(), info.Exists() ? 5ull << 30 : 0) << name;
    *info.GetFullName() = *Make("changed");
    EXPECT_EQ(Utf8(info.Description()), Utf8(info.CUObject::Description()) + base + name);
  }
  CUFileInfo info(Make("/any"));
  EXPECT_FALSE(info.z_WaitFileNotExist(Make(base + "none"), 0));
  EXPECT_TRUE(info.z_WaitFileNotExist(Make(base + "none"), 1));
  EXPECT_FALSE(info.z_WaitFileNotExist(Make(base + "file"), 2));
}

TEST_F(CUFileInfoTest, RenamesWithoutReplacing) {
  WriteFile(base + "taken", "old");
  fs::create_symlink("nowhere", base + "dangling");
  fs::create_symlink("taken", base + "link");
  // From where to where, what is thrown, and whether the name changes.
  std::tuple<std::string, std::string, unsigned int, bool> const cases[] = {
      {"a", "taken", 4, false},   {"a", "dangling", 4, false},
      {"a", ".", 4, false},       {"a", std::string(256, 'n'), 0, false},
      {"a", "x:y", 0, true},      {"a", "\xFF", 1, false},
      {"missing", "b", 4, false}, {"link", "other", 0, true}};
  for (auto const& [from, to, code, renamed] : cases) {
    WriteFile(base + "a", "new");
    CUFileInfo info(Make(base + from));
    EXPECT_EQ(ThrownCode([&, name = Make(to)] { info.Rename(name); }), code) << from << " " << to;
    EXPECT_EQ(Utf8(info.GetFullName()), base + (renamed ? to : from)) << to;
    EXPECT_EQ(IsThere(from), !renamed && from == "a") << from << " " << to;
    EXPECT_TRUE(IsThere(to) || !renamed) << to;
    if (renamed) fs::remove(base + to);
  }
  EXPECT_EQ(ReadFile(base + "taken"), "old");
  CUFile::Rename(Make(base + "a"), Make("x/y"));
  EXPECT_EQ(ReadFile(base + "x:y"), "new") << "a name is never a path";
  EXPECT_EQ(ThrownCode([] { CUFile::Rename(Make("bare name"), Make("b")); }), 0u);
}

// Paths that the system cannot be told whole. Their beginning is another entry's path, and whatever
// is done to the path must not be done to that entry.
TEST_F(CUFileInfoTest, BrokenPathsLeaveTheEntryThatTheyBeginWith) {
  fs::create_directories(base + "full/sub");
  fs::create_directory(base + "empty");
  for (char const* const name : {"keep", "precious"}) WriteFile(base + name, name);
  std::string const before = Tree(base);
  for (char16_t const broken : {u'\xD800', u'\xDC00', u'\0'}) {
    auto const in = [&](std::u16string const& name, std::u16string const& rest) {
      return Make(std::u16string(base.begin(), base.end()) + name + broken + rest);
    };
    auto const file = in(u"keep", u"junk");
    EXPECT_FALSE(CUFile::Exists(file));
    EXPECT_EQ(CUFileInfo(file).Length(), 0u);
    CUFile::Delete(file);
    EXPECT_EQ(ThrownCode([&] { CUFile::Rename(file, Make("other")); }), 4u);
    for (unsigned int mode = CUStream_FileMode_Append; mode <= CUStream_FileMode_Truncate; ++mode) {
      auto path = file;
      CUFileStream(path, static_cast<CUStream_FileMode>(mode), CUStream_FileAccess_ReadWrite, true);
    }
    for (auto const& directory : {in(u"empty/", u"x"), in(u"full/", u"")}) {
      EXPECT_FALSE(CUDirectory::Exists(directory));
      EXPECT_EQ(ThrownCode([&] { CUDirectory::Delete(directory); }), 3u);
      EXPECT_EQ(ThrownCode([&] { CUDirectory::Delete(directory, true); }), 4u);
      EXPECT_EQ(ThrownCode([&] { CUDirectory::Recycle(directory); }), 3u);
      EXPECT_EQ(ThrownCode([&] { CUDirectory::GetFiles(directory); }), 4u);
      EXPECT_EQ(ThrownCode([&] { CUDirectory::Rename(directory, Make("other")); }), 4u);
    }
    auto const goOn = [](unsigned long long, unsigned long long, void*) { return true; };
    _CopyProgress_Info info = {goOn, nullptr, nullptr};
    auto const into = in(u"", u"x/precious");
    EXPECT_NE(CUFile::CopyWithProgress(Make(base + "keep"), into, &info, true), CUResult_Success);
    EXPECT_NE(CUFile::MoveWithProgress(Make(base + "keep"), into, &info, true), CUResult_Success);
    EXPECT_EQ(ThrownCode([&] { CUFile::CopyWithProgress(file, Make(base + "c"), &info, true); }),
              9u);
    EXPECT_EQ(Tree(base), before) << static_cast<int>(broken);
  }
}
