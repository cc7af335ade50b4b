#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "QuillmereLib/filesystem/CUFile.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

// The error code that `work` throws as `unsigned int`; 0 for none.
unsigned int CodeOf(std::function<void()> const& work) {
  try {
    work();
  } catch (unsigned int code) {
    return code;
  }
  return 0;
}

CUSharedPtr<CUStringMac> const kNull;

}  // namespace

TEST(CUFileInfo, RefusesPathsThatAreNone) {
  CUStringMac empty;
  EXPECT_EQ(CodeOf([&] { CUFileInfo info(empty); }), 1u);
  EXPECT_EQ(CodeOf([&] { CUFileInfo info(Make("")); }), 1u);
  EXPECT_EQ(CodeOf([&] { CUFileInfo info(Make("\xFF")); }), 1u) << "the null string";
  EXPECT_EQ(CodeOf([&] { CUFileInfo info(kNull); }), 2u);
  EXPECT_EQ(CodeOf([&] { CUFile::Delete(kNull); }), 2u);
  EXPECT_EQ(CodeOf([&] { CUFile::Delete(empty); }), 1u);
  EXPECT_EQ(CodeOf([&] { CUFile::Rename(kNull, Make("x")); }), 2u);
}

TEST(CUFileInfo, DescribesItselfByItsPath) {
  CUFileInfo info(Make("/some/path"));
  CUSharedPtr<CUStringMac> const name = info.GetFullName();
  *name = *Make("changed");
  EXPECT_EQ(Utf8(info.GetFullName()), "/some/path");
  std::string const text = Utf8(info.Description());
  EXPECT_EQ(text.substr(0, 13), "10CUFileInfo(");
  EXPECT_EQ(text.substr(text.size() - 11), ")/some/path");
}

TEST(CUFileInfo, DeletesFilesAndLinksAlone) {
  TemporaryFolder const folder;
  std::string const base = folder.Path() + "/";
  fs::create_directory(base + "dir");
  WriteFile(base + "dir/inside", "x");
  WriteFile(base + "file", "x");
  fs::create_symlink("dir", base + "toDir");
  fs::create_symlink("nowhere", base + "dangling");
  fs::create_hard_link(base + "dir/inside", base + "hard");
  mkfifo((base + "fifo").c_str(), 0600);
  struct {
    std::string name;
    unsigned int code;
  } const cases[] = {{"missing", 0}, {"dir", 7},  {"file", 0}, {"dangling", 0},
                     {"toDir", 0},   {"fifo", 0}, {"hard", 0}, {"file/x", 0}};
  for (auto const& [name, code] : cases) {
    EXPECT_EQ(CodeOf([&, &name = name] { CUFile::Delete(Make(base + name)); }), code) << name;
    bool const remains = fs::symlink_status(base + name).type() != fs::file_type::not_found;
    EXPECT_EQ(remains, code != 0) << name;
  }
  EXPECT_EQ(ReadFile(base + "dir/inside"), "x");
  chmod((base + "dir").c_str(), 0755);
  chmod(folder.Path().c_str(), 0755);
  EXPECT_EQ(InChild([&] {
              if (!BecomeNobody()) return std::string("skip");
              return std::to_string(CodeOf([&] { CUFile::Delete(Make(base + "dir/inside")); }));
            }),
            geteuid() == 0 ? "8" : "skip");
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
  WriteFile(base + "taken", "old");
  fs::create_symlink("nowhere", base + "dangling");
  WriteFile(base + "link target", "x");
  fs::create_symlink("link target", base + "link");
  struct {
    std::string from, to;
    unsigned int code;
    bool renamed;
  } const cases[] = {{"a", "b", 0, true},
                     {"a", "", 1, false},
                     {"a", "taken", 4, false},
                     {"a", "dangling", 4, false},
                     {"a", ".", 4, false},
                     {"a", std::string(255, 'n'), 0, true},
                     {"a", std::string(256, 'n'), 0, false},
                     {"a", "x:y", 0, true},
                     {"a", "\xFF", 1, false},
                     {"missing", "b", 4, false},
                     {"link", "other", 0, true}};
  for (auto const& [from, to, code, renamed] : cases) {
    WriteFile(base + "a", "new");
    CUFileInfo info(Make(base + from));
    EXPECT_EQ(CodeOf([&, &to = to] { info.Rename(Make(to)); }), code) << from << " " << to;
    EXPECT_EQ(Utf8(info.GetFullName()), base + (renamed ? to : from)) << to;
    struct stat facts;
    EXPECT_EQ(lstat((base + to).c_str(), &facts) == 0,
              renamed || (code == 4 && from == "a") || to.empty())
        << to;
    if (renamed) fs::remove(base + to);
  }
  EXPECT_EQ(ReadFile(base + "taken"), "old");
  EXPECT_TRUE(fs::exists(base + "link target"));
  CUFile::Rename(Make(base + "a"), Make("x/y"));
  EXPECT_EQ(ReadFile(base + "x:y"), "new") << "a name is never a path";
  EXPECT_EQ(CodeOf([&] { CUFile::Rename(Make(base + "x:y"), kNull); }), 2u);
  EXPECT_EQ(CodeOf([] { CUFile::Rename(Make("bare name"), Make("b")); }), 0u);
}

TEST(CUFileInfo, WaitsForAFileToGo) {
  TemporaryFolder const folder;
  std::string const path = folder.Path() + "/file";
  CUFileInfo info(Make("/any"));
  auto const wait = [&](CUSharedPtr<CUStringMac> const& where, unsigned int attempts) {
    auto const start = std::chrono::steady_clock::now();
    bool const isGone = info.z_WaitFileNotExist(where, attempts);
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
