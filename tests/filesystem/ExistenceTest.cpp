#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUFile.h"
#include "tests/support/InChild.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"

namespace {

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

TEST(Existence, TellsFilesFromDirectories) {
  TemporaryFolder const folder;
  std::string const base = folder.Path() + "/";
  namespace fs = std::filesystem;
  std::ofstream(base + "file") << "x";
  fs::create_directories(base + "dir/\xC3\xA4 b");
  std::ofstream(base + "dir/a:b");
  fs::create_symlink("file", base + "toFile");
  fs::create_symlink("dir", base + "toDir");
  fs::create_symlink("nowhere", base + "dangling");
  fs::create_symlink("circle", base + "circle");
  ASSERT_EQ(mkfifo((base + "fifo").c_str(), 0600), 0);
  struct {
    std::string path, kind;
  } const cases[] = {{base + "file", "file"},
                     {base + "dir", "directory"},
                     {base + "dir/", "directory"},
                     {base + "dir//\xC3\xA4 b/..", "directory"},
                     {base + "dir/a:b", "file"},
                     {base + "dir/a/b", "none"},
                     {base + "toFile", "file"},
                     {base + "toDir", "directory"},
                     {base + "dangling", "none"},
                     {base + "circle", "none"},
                     {base + "fifo", "file"},
                     {base + "file/x", "none"},
                     {base + "file/", "none"},
                     {base + "missing", "none"},
                     {base + std::string(300, 'n'), "none"},
                     {base + std::string(5000, '/') + "dir", "none"},
                     {"/dev/null", "file"},
                     {"/", "directory"},
                     {".", "directory"},
                     {"", "none"},
                     {"\xFF", "none"}};
  for (auto const& [path, kind] : cases) EXPECT_EQ(KindOf(path), kind) << path.substr(0, 80);

  CUStringMac* const null = nullptr;
  EXPECT_FALSE(CUFile::Exists(null) || CUDirectory::Exists(null));
  CUSharedPtr<CUStringMac> const nullPointer;
  EXPECT_FALSE(CUFile::Exists(nullPointer) || CUDirectory::Exists(nullPointer));
}

TEST(Existence, IsDeniedWhereAFolderMayNotBeSearched) {
  TemporaryFolder const folder;
  std::filesystem::create_directory(folder.Path() + "/dir");
  std::ofstream(folder.Path() + "/dir/file");
  EXPECT_EQ(InChild([&] {
              if (!BecomeNobody()) return std::string("skip");
              return KindOf(folder.Path() + "/dir/file") + " " + KindOf(folder.Path() + "/dir");
            }),
            geteuid() == 0 ? "none none" : "skip");
}
