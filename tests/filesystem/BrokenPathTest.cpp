// Paths that the system cannot be told whole. Their beginning is another entry's path, and whatever
// is done to the path must not be done to that entry.

#include <gtest/gtest.h>

#include <filesystem>

#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUFile.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "QuillmereLib/streams/CUFileStream.h"
#include "tests/support/Files.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ThrownCode.h"

namespace {

using Path = CUSharedPtr<CUStringMac>;

bool GoOn(unsigned long long, unsigned long long, void*) { return true; }

// What stands below the folder, with the contents of its files.
std::string Tree(std::string const& folder) {
  std::string told;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(folder)) {
    std::string const path = entry.path();
    told += path + (entry.is_directory() ? "/" : "=" + ReadFile(path)) + "\n";
  }
  return told;
}

TEST(BrokenPath, NothingIsDoneToTheEntryItBeginsWith) {
  for (char16_t const broken : {u'\xD800', u'\xDC00', u'\0'}) {
    TemporaryFolder const folder;
    std::string const base = folder.Path() + "/";
    std::filesystem::create_directories(base + "full/sub");
    std::filesystem::create_directory(base + "empty");
    WriteFile(base + "keep", "keep");
    WriteFile(base + "precious", "precious");
    std::string const before = Tree(folder.Path());
    std::u16string const start(base.begin(), base.end());
    auto const in = [&](std::u16string const& name, std::u16string const& rest) -> Path {
      return Make(start + name + broken + rest);
    };

    Path const file = in(u"keep", u"junk");
    EXPECT_FALSE(CUFile::Exists(file));
    EXPECT_EQ(CUFileInfo(file).Length(), 0u);
    CUFile::Delete(file);
    EXPECT_EQ(ThrownCode([&] { CUFile::Rename(file, Make("other")); }), 4u);
    for (unsigned int mode = CUStream_FileMode_Append; mode <= CUStream_FileMode_Truncate; ++mode) {
      Path path = file;
      CUFileStream(path, static_cast<CUStream_FileMode>(mode), CUStream_FileAccess_ReadWrite, true);
    }
    for (Path const& directory : {in(u"empty/", u"x"), in(u"full/", u"")}) {
      EXPECT_FALSE(CUDirectory::Exists(directory));
      EXPECT_EQ(ThrownCode([&] { CUDirectory::Delete(directory); }), 3u);
      EXPECT_EQ(ThrownCode([&] { CUDirectory::Delete(directory, true); }), 4u);
      EXPECT_EQ(ThrownCode([&] { CUDirectory::Recycle(directory); }), 3u);
      EXPECT_EQ(ThrownCode([&] { CUDirectory::GetFiles(directory); }), 4u);
      EXPECT_EQ(ThrownCode([&] { CUDirectory::Rename(directory, Make("other")); }), 4u);
    }
    _CopyProgress_Info info = {GoOn, nullptr, nullptr};
    Path const into = in(u"", u"x/precious");
    EXPECT_NE(CUFile::CopyWithProgress(Make(base + "keep"), into, &info, true), CUResult_Success);
    EXPECT_NE(CUFile::MoveWithProgress(Make(base + "keep"), into, &info, true), CUResult_Success);
    EXPECT_EQ(ThrownCode([&] { CUFile::CopyWithProgress(file, Make(base + "c"), &info, true); }),
              9u);
    EXPECT_EQ(Tree(folder.Path()), before) << static_cast<int>(broken);
  }
}

}  // namespace
