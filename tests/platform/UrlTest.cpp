#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/Files.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using Url = CFHolder<CFURLRef>;

constexpr CFURLPathStyle kUnknownStyle = static_cast<CFURLPathStyle>(1);

Url UrlOf(CFStringRef path, Boolean isDirectory, CFURLPathStyle style = kCFURLPOSIXPathStyle) {
  return Url(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path, style, isDirectory));
}

// The path of the URL, and whether it is a directory's.
std::string Tell(Url const& url) {
  if (!url) return "<none>";
  CFHolder<CFStringRef> const path(CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle));
  bool const isDirectory = CFEqual(url.Get(), UrlOf(path.Get(), true).Get());
  return Utf8(path.Get()) + (isDirectory ? " directory" : "");
}

}  // namespace

TEST(Url, KeepsAPathButForSlashesAtItsEnd) {
  EXPECT_EQ(Tell(UrlOf(CFSTR("///"), true)), "/ directory");
  EXPECT_EQ(Tell(UrlOf(CFSTR("/My Disk/"), true)), "/My Disk directory");
  EXPECT_EQ(Tell(UrlOf(CFSTR("/a//b/./../c%20"), false)), "/a//b/./../c%20");
  EXPECT_EQ(Tell(UrlOf(CFSTR(""), true)), "<none>");
  EXPECT_EQ(Tell(UrlOf(CFSTR("/"), true, kUnknownStyle)), "<none>");
  EXPECT_EQ(CFURLCopyFileSystemPath(UrlOf(CFSTR("/"), true).Get(), kUnknownStyle), nullptr);
}

TEST(Url, StandsForTheEntryOfItsPath) {
  TemporaryFolder const folder;
  std::string const base = folder.Path() + "/";
  for (char const* const name : {"dir", "\xFF"}) std::filesystem::create_directory(base + name);
  for (char const* const name : {"\u00E4", "gone"}) WriteFile(base + name, "x");
  std::filesystem::create_symlink("\u00E4", base + "link");
  auto const told = [&](std::string const& name) {
    FSRef ref;
    std::string const path = base + name;
    EXPECT_EQ(FSPathMakeRef(reinterpret_cast<UInt8 const*>(path.c_str()), &ref, nullptr), noErr);
    if (name == "gone") std::filesystem::remove(path);
    return Tell(Url(CFURLCreateFromFSRef(kCFAllocatorDefault, &ref)));
  };
  EXPECT_EQ(told("dir"), base + "dir directory");
  EXPECT_EQ(told("link"), base + "\u00E4");
  EXPECT_EQ(told("\xFF"), "<none>");
  EXPECT_EQ(told("gone"), "<none>");
  EXPECT_EQ(CFURLCreateFromFSRef(kCFAllocatorDefault, nullptr), nullptr);

  FSRef ref = {};
  EXPECT_TRUE(CFURLGetFSRef(UrlOf(*Make(base + "link"), false).Get(), &ref));
  EXPECT_EQ(ref.path, base + "\u00E4");
  // Of the last two, what can be converted exists.
  std::u16string const whole(base.begin(), base.end());
  for (auto const& path : {whole + u"missing", whole + u'\xD800', whole + u'\0'}) {
    CFHolder<CFStringRef> const text(CreateString(path));
    EXPECT_FALSE(CFURLGetFSRef(UrlOf(text.Get(), false).Get(), &ref)) << path.size();
  }
}

TEST(Url, AndStringsAreEqualByValue) {
  auto const text = Make("/a"), same = Make("/a"), other = Make("/A");
  CFStringRef const strings[] = {*text, *same, *other};
  Url const urls[] = {UrlOf(*text, true), UrlOf(*Make("/a/"), true), UrlOf(*text, false),
                      UrlOf(*other, true)};
  EXPECT_TRUE(CFEqual(strings[0], strings[0]) && CFEqual(strings[0], strings[1]) &&
              CFEqual(urls[0].Get(), urls[1].Get()));
  EXPECT_FALSE(CFEqual(strings[0], strings[2]) || CFEqual(urls[0].Get(), urls[2].Get()));
  EXPECT_FALSE(CFEqual(urls[0].Get(), urls[3].Get()) || CFEqual(urls[0].Get(), strings[0]));
  EXPECT_FALSE(CFEqual(strings[0], urls[0].Get()));
}
