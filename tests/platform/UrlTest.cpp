#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/Files.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"

namespace {

// The path of the URL, and whether it is a directory's; lets the URL go.
std::string Tell(CFURLRef url) {
  if (url == nullptr) return "<none>";
  CFStringRef const text = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
  std::string result = Utf8(text);
  CFURLRef const directory =
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text, kCFURLPOSIXPathStyle, true);
  if (CFEqual(url, directory)) result += " directory";
  CFRelease(directory);
  CFRelease(text);
  CFRelease(url);
  return result;
}

CFURLRef UrlOf(std::string const& path, Boolean isDirectory,
               CFURLPathStyle style = kCFURLPOSIXPathStyle) {
  CUStringMac const text(path.c_str(), CUString_CharCode_UTF8);
  CFStringRef const string = text;
  return CFURLCreateWithFileSystemPath(kCFAllocatorDefault, string, style, isDirectory);
}

}  // namespace

TEST(Url, KeepsAPathButForSlashesAtItsEnd) {
  struct {
    std::string path;
    Boolean isDirectory;
    std::string told;
  } const cases[] = {{"/", true, "/ directory"},
                     {"///", true, "/ directory"},
                     {"/Volumes/My Disk/", true, "/Volumes/My Disk directory"},
                     {"/a//b/./../c%20", false, "/a//b/./../c%20"},
                     {"\xC3\xA4/b", false, "\xC3\xA4/b"},
                     {"", true, "<none>"}};
  for (auto const& [path, isDirectory, told] : cases) {
    EXPECT_EQ(Tell(UrlOf(path, isDirectory)), told) << path;
  }
  EXPECT_EQ(UrlOf("/", true, static_cast<CFURLPathStyle>(1)), nullptr);
  CFURLRef const root = UrlOf("/", true);
  EXPECT_EQ(CFURLCopyFileSystemPath(root, static_cast<CFURLPathStyle>(1)), nullptr);
  CFRelease(root);
}

TEST(Url, OfAnEntrySaysWhetherItIsADirectory) {
  TemporaryFolder const folder;
  std::string const base = folder.Path() + "/";
  std::filesystem::create_directory(base + "dir");
  std::filesystem::create_directory(base + "\xFF");
  WriteFile(base + "file", "x");
  auto const tell = [&](std::string const& name) {
    FSRef ref;
    std::string const path = base + name;
    EXPECT_EQ(FSPathMakeRef(reinterpret_cast<UInt8 const*>(path.c_str()), &ref, nullptr), noErr);
    if (name == "file") std::filesystem::rename(path, base + "moved");
    std::string told = Tell(CFURLCreateFromFSRef(kCFAllocatorDefault, &ref));
    return told.substr(0, base.size()) == base ? told.substr(base.size()) : told;
  };
  EXPECT_EQ(tell("dir"), "dir directory");
  EXPECT_EQ(tell("\xFF"), "<none>");
  EXPECT_EQ(tell("file"), "<none>");
  EXPECT_EQ(tell("moved"), "moved");
  EXPECT_EQ(CFURLCreateFromFSRef(kCFAllocatorDefault, nullptr), nullptr);
}

TEST(Url, LeadsToTheEntryOfItsPath) {
  TemporaryFolder const folder;
  std::string const base = folder.Path() + "/";
  WriteFile(base + "\xC3\xA4", "x");
  std::filesystem::create_symlink("\xC3\xA4", base + "link");
  for (std::string const name : {"\xC3\xA4", "link", "missing"}) {
    FSRef ref = {};
    CFURLRef const url = UrlOf(base + name, false);
    EXPECT_EQ(CFURLGetFSRef(url, &ref), name != "missing") << name;
    EXPECT_EQ(std::string(ref.path), name == "missing" ? "" : base + "\xC3\xA4");
    CFRelease(url);
  }
  // What can be converted of it exists.
  std::u16string const whole(base.begin(), base.end());
  for (char16_t const unit : {u'\xD800', u'\0'}) {
    CFStringRef const text = CreateString(whole + unit);
    CFURLRef const url =
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text, kCFURLPOSIXPathStyle, false);
    FSRef ref;
    EXPECT_FALSE(CFURLGetFSRef(url, &ref)) << static_cast<int>(unit);
    CFRelease(url);
    CFRelease(text);
  }
}

TEST(Url, AndStringsAreEqualByValue) {
  CFURLRef const first = UrlOf("/a", true), same = UrlOf("/a/", true);
  CFURLRef const file = UrlOf("/a", false), other = UrlOf("/A", true);
  auto const text = Make("/a"), sameText = Make("/a"), otherText = Make("/A");
  CFStringRef const string = *text;
  EXPECT_TRUE(CFEqual(first, first) && CFEqual(first, same));
  EXPECT_TRUE(CFEqual(string, static_cast<CFStringRef>(*sameText)));
  EXPECT_FALSE(CFEqual(first, file) || CFEqual(first, other));
  EXPECT_FALSE(CFEqual(first, string) || CFEqual(string, first));
  EXPECT_FALSE(CFEqual(string, static_cast<CFStringRef>(*otherText)));
  for (CFURLRef const url : {first, same, file, other}) CFRelease(url);
}
