#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUFile.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "tests/support/FailingSystemCall.h"
#include "tests/support/Files.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ThrownCode.h"

namespace {

namespace fs = std::filesystem;

CUSharedPtr<CUStringMac> const kNull;

// "file", "directory" or "none", by both forms of both tests.
std::string KindOf(std::string const& path) {
  auto const text = Make(path);
  bool const file = CUFile::Exists(text);
  bool const directory = CUDirectory::Exists(text);
  EXPECT_EQ(CUFile::Exists(text.Get()), file);
  EXPECT_EQ(CUDirectory::Exists(text.Get()), directory);
  EXPECT_FALSE(file && directory);
  return file ? "file" : directory ? "directory" : "none";
}

}  // namespace

TEST(CUFileInfo, IsOfAPathAndDescribesItselfByIt) {
  CUStringMac empty;
  EXPECT_EQ(ThrownCode([&] { CUFileInfo info(empty); }), 1u);
  EXPECT_EQ(ThrownCode([&] { CUFileInfo info(Make("\xFF")); }), 1u) << "the null string";
  EXPECT_EQ(ThrownCode([&] { CUFileInfo info(kNull); }), 2u);
  EXPECT_EQ(ThrownCode([&] { CUFile::Delete(kNull); }), 2u);
  EXPECT_EQ(ThrownCode([&] { CUFile::Delete(empty); }), 1u);
  EXPECT_EQ(ThrownCode([&] { CUFile::Rename(kNull, Make("x")); }), 2u);
  CUFileInfo info(Make("/some/path"));
  *info.GetFullName() = *Make("changed");
  EXPECT_EQ(Utf8(info.GetFullName()), "/some/path");
  EXPECT_EQ(Utf8(info.Description()), Utf8(info.CUObject::Description()) + "/some/path");
}

// How paths are followed is the platform's.
TEST(CUFile, TellsFilesFromDirectories) {
  TemporaryFolder const folder;
  std::string const base = folder.Path() + "/";
  fs::create_directory(base + "dir");
  for (char const* const name : {"file", "dir/a:b"}) WriteFile(base + name, "");
  for (std::string const name : {"file", "dir", "nowhere"}) {
    fs::create_symlink(name, base + "to-" + name);
  }
  ASSERT_EQ(mkfifo((base + "fifo").c_str(), 0600), 0);
  std::pair<std::string, std::vector<std::string>> const cases[] = {
      {"file", {base + "file", base + "dir/a:b", base + "to-file", base + "fifo"}},
      {"directory", {base + "dir/", base + "to-dir", "/"}},
      {"none",
       {base + "dir/a/b", base + "to-nowhere", base + "file/", base + std::string(300, 'n'),
        base + std::string(5000, '/') + "dir", "", "\xFF"}}};
  for (auto const& [kind, paths] : cases) {
    for (std::string const& path : paths) EXPECT_EQ(KindOf(path), kind) << path.substr(0, 80);
  }
  CUStringMac* const null = nullptr;
  EXPECT_FALSE(CUFile::Exists(null) || CUDirectory::Exists(null));
  EXPECT_FALSE(CUFile::Exists(kNull) || CUDirectory::Exists(kNull));
}

TEST(CUFileInfo, DeletesFilesAndLinksAlone) {
  TemporaryFolder const folder;
  std::string const base = folder.Path() + "/";
  fs::create_directory(base + "dir");
  WriteFile(base + "dir/inside", "x");
  WriteFile(base + "file", "x");
  fs::create_symlink("dir", base + "toDir");
  fs::create_symlink("nowhere", base + "dangling");
  mkfifo((base + "fifo").c_str(), 0600);
  std::pair<std::string, unsigned int> const cases[] = {{"missing", 0},  {"dir", 7},   {"file", 0},
                                                        {"dangling", 0}, {"toDir", 0}, {"fifo", 0},
                                                        {"file/x", 0}};
  for (auto const& [name, code] : cases) {
    EXPECT_EQ(ThrownCode([path = Make(base + name)] { CUFile::Delete(path); }), code) << name;
    EXPECT_EQ(fs::exists(fs::symlink_status(base + name)), code != 0) << name;
  }
  EXPECT_EQ(ReadFile(base + "dir/inside"), "x");
  // As where another deletes it once it has been looked at.
  unsigned int code = 1;
  CallTrace const trace = RunWithFault(
      {ENOENT, 2}, [&] { code = ThrownCode([&] { CUFile::Delete(Make(base + "dir/inside")); }); });
  if (!trace.isPossible) GTEST_SKIP() << "the kernel does not let system calls be watched";
  EXPECT_STREQ(trace.lastFailed, "unlink");
  EXPECT_EQ(code, 0u);
}

TEST(CUFileInfo, MeasuresWhatIsThere) {
  TemporaryFolder const folder;
  WriteFile(folder.Path() + "/file", "");
  fs::resize_file(folder.Path() + "/file", 5ull << 30);
  fs::create_symlink("file", folder.Path() + "/link");
  for (std::string const name : {"/file", "/link", "/missing", "", "/file/x"}) {
    bool const isThere = name == "/file" || name == "/link";
    CUFileInfo info(Make(folder.Path() + name));
    EXPECT_EQ(info.Length(), isThere ? 5ull << 30 : 0) << name;
    EXPECT_EQ(info.Exists(), isThere) << name;
  }
}

TEST(CUFileInfo, RenamesWithoutReplacing) {
  TemporaryFolder const folder;
  std::string const base = folder.Path() + "/";
  auto const isThere = [&](std::string const& name) {
    std::error_code tooLong;
    return fs::exists(fs::symlink_status(base + name, tooLong));
  };
  WriteFile(base + "taken", "old");
  fs::create_symlink("nowhere", base + "dangling");
  fs::create_symlink("taken", base + "link");
  struct {
    std::string from, to;
    unsigned int code;
    bool renamed;
  } const cases[] = {{"a", "b", 0, true},
                     {"a", "taken", 4, false},
                     {"a", "dangling", 4, false},
                     {"a", ".", 4, false},
                     {"a", std::string(255, 'n'), 0, true},
                     {"a", std::string(256, 'n'), 0, false},
                     {"a", "x:y", 0, true},
                     {"a", "", 1, false},
                     {"a", "\xFF", 1, false},
                     {"missing", "b", 4, false},
                     {"link", "other", 0, true}};
  for (auto const& [from, to, code, renamed] : cases) {
    WriteFile(base + "a", "new");
    CUFileInfo info(Make(base + from));
    EXPECT_EQ(ThrownCode([&, name = Make(to)] { info.Rename(name); }), code) << from << " " << to;
    EXPECT_EQ(Utf8(info.GetFullName()), base + (renamed ? to : from)) << to;
    EXPECT_EQ(isThere(from), !renamed && from == "a") << from << " " << to;
    EXPECT_TRUE(isThere(to) || !renamed) << to;
    if (renamed) fs::remove(base + to);
  }
  EXPECT_EQ(ReadFile(base + "taken"), "old");
  CUFile::Rename(Make(base + "a"), Make("x/y"));
  EXPECT_EQ(ReadFile(base + "x:y"), "new") << "a name is never a path";
  EXPECT_EQ(ThrownCode([&] { CUFile::Rename(Make(base + "x:y"), kNull); }), 2u);
  EXPECT_EQ(ThrownCode([] { CUFile::Rename(Make("bare name"), Make("b")); }), 0u);
}

TEST(CUFileInfo, WaitsForAFileToGo) {
  TemporaryFolder const folder;
  std::string const path = folder.Path() + "/file";
  auto const wait = [&](CUSharedPtr<CUStringMac> const& where, unsigned int attempts) {
    auto const start = std::chrono::steady_clock::now();
    bool const isGone = CUFileInfo(Make("/any")).z_WaitFileNotExist(where, attempts);
    auto const tenths = (std::chrono::steady_clock::now() - start) / std::chrono::milliseconds(100);
    return std::string(isGone ? "gone after " : "there after ") + std::to_string(tenths);
  };
  EXPECT_EQ(wait(Make(path), 0), "there after 0");
  EXPECT_EQ(wait(Make(path), 1), "gone after 0");
  EXPECT_EQ(wait(kNull, 5), "there after 0");
  WriteFile(path, "x");
  EXPECT_EQ(wait(Make(path), 2), "there after 2");
  std::thread remover([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    fs::remove(path);
  });
  EXPECT_EQ(wait(Make(path), 50), "gone after 2");
  remover.join();
}
