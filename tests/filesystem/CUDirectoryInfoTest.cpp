#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <thread>
#include <tuple>

#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ThrownCode.h"

namespace {

namespace fs = std::filesystem;
using std::to_string;
using Paths = std::set<std::string>;

unsigned int Create(std::string const& path) {
  return ThrownCode([&] { CUDirectory::CreateDirectory(Make(path)); });
}
unsigned int Delete(std::string const& path, bool recursive = true) {
  return ThrownCode([&] { CUDirectory::Delete(Make(path), recursive); });
}

// The full paths of what must all be of the class; "?" where it is not.
template <class Entry>
Paths PathsOf(CUSharedPtr<CUArray> const& objects) {
  Paths paths;
  for (unsigned int i = 0; i < objects->Count(); ++i) {
    auto* const entry = dynamic_cast<Entry*>(objects->ObjectAtIndex(i).Get());
    paths.insert(entry == nullptr ? "?" : Utf8(entry->GetFullName()));
  }
  return paths;
}
Paths Directories(std::string const& path) {
  return PathsOf<CUDirectoryInfo>(CUDirectory::GetDirectories(Make(path).Get()));
}
Paths Files(std::string const& path) {
  return PathsOf<CUFileInfo>(CUDirectory::GetFiles(Make(path)));
}

class CUDirectoryInfoTest : public testing::Test {
 protected:
  std::string At(std::string const& name) const { return root + "/" + name; }
  // A sign for each: whether it is there, of whatever kind.
  std::string There(std::initializer_list<std::string> names) const {
    std::string signs;
    for (auto const& name : names) signs += fs::exists(fs::symlink_status(At(name))) ? "+" : "-";
    return signs;
  }

  TemporaryFolder const folder;
  std::string const root = fs::canonical(folder.Path());
  // For what would take long on a disk.
  TemporaryFolder const memory{fs::exists("/dev/shm") ? "/dev/shm" : nullptr};
};

}  // namespace

TEST_F(CUDirectoryInfoTest, CreatesEveryMissingLevel) {
  WriteFile(At("file"), "");
  fs::create_directory(At("dir"));
  fs::create_symlink("dir", At("link"));
  fs::create_symlink("nothing", At("dangling"));
  fs::current_path(root);
  // A path, what is thrown, and what exists afterwards.
  std::tuple<std::string, unsigned int, std::string> const cases[] = {
      {At("a/x//y///"), 0, "a/x/y"},
      {At("link/new"), 0, "dir/new"},
      {At("a/12:30/\xC3\xA4 \xF0\x9F\x8E\xAC"), 0, "a/12:30/\xC3\xA4 \xF0\x9F\x8E\xAC"},
      {"dir/relative/deep", 0, "dir/relative/deep"},
      {At("dangling/x"), 4, "dangling"},
      {At("half/") + std::string(256, 'n') + "/x", 4, "half"}};
  for (auto const& [path, code, made] : cases) {
    EXPECT_EQ(Create(path), code) << path;
    EXPECT_EQ(There({made}), "+") << path;
  }
  fs::current_path("/");
  std::string levels = root;
  while (levels.size() < 5000) levels += "/n";
  for (std::string const& hostile :
       {levels, root + std::string(100000, '/') + "x", std::string(1 << 20, '/') + "n/n"}) {
    EXPECT_EQ(Create(hostile), 4u) << hostile.size();
  }
}

// Names with a colon, which the platform shows as a slash, must not become other paths.
TEST_F(CUDirectoryInfoTest, ListsFullPathsAndDeletesATreeAndNothingElse) {
  for (char const* const name : {"outside/inner", "tree/a/b", "tree/y:z", "tree/.d"}) {
    fs::create_directories(At(name));
  }
  std::string const reel = "tree/\xEF\xBB\xBF\xF0\x9F\x8E\xAC";
  for (std::string const& name : {std::string("outside/inner/file"), std::string("tree/a:b"),
                                  std::string("tree/a/f"), std::string("tree/.h"), reel}) {
    WriteFile(At(name), name);
  }
  std::pair<char const*, char const*> const links[] = {
      {"../outside", "tree/dir"}, {"../outside/inner/file", "tree/to-file"},
      {"..", "tree/a/up"},        {"nothing", "tree/none"},
      {"loop", "tree/a/loop"},    {"/", "tree/a/b/all"},
      {"tree", "to-tree"}};
  for (auto const& [target, link] : links) fs::create_symlink(target, At(link));
  ASSERT_EQ(mkfifo(At("tree/fifo").c_str(), 0600), 0);

  Paths const directories = {At("tree/a"), At("tree/y:z"), At("tree/.d")};
  Paths const files = {At("tree/a:b"),  At("tree/.h"),   At("tree/dir"), At("tree/to-file"),
                       At("tree/none"), At("tree/fifo"), At(reel)};
  EXPECT_EQ(Directories(At("tree")), directories);
  EXPECT_EQ(Files(At("tree/")), files);
  EXPECT_EQ(Directories(At("tree/dir")), Paths{At("tree/dir/inner")});
  for (char const* const name : {"missing", "tree/.h", "tree/none", "tree/.h/"}) {
    EXPECT_EQ(ThrownCode([&] { Files(At(name)); }), 4u) << name;
  }
  for (std::string const link : {"to-tree", "tree/dir/"}) {
    EXPECT_EQ(Delete(At(link)), 0u);
    EXPECT_EQ(There({link.substr(0, 8), "tree/.h"}), "-+") << link;
  }
  long const before = OpenDescriptors();
  EXPECT_EQ(Delete(At("tree")), 0u);
  EXPECT_EQ(There({"tree"}) + ReadFile(At("outside/inner/file")), "-outside/inner/file");
  EXPECT_EQ(OpenDescriptors(), before);

  // What no string can name keeps its folder.
  fs::create_directories(At("odd/\xFF/deep"));
  WriteFile(At("odd/plain"), "");
  EXPECT_EQ(Delete(At("odd")), 4u);
  EXPECT_EQ(There({"odd/\xFF/deep", "odd/plain"}), "+-");
}

TEST_F(CUDirectoryInfoTest, TellsWhyItCannotDelete) {
  fs::create_directories(At("full/empty"));
  WriteFile(At("file"), "");
  std::pair<char const*, char const*> const links[] = {
      {"file", "to-file"}, {"nothing", "none"}, {"full", "to-full"}};
  for (auto const& [target, link] : links) fs::create_symlink(target, At(link));
  for (char const* const name : {"missing", "file", "to-file", "none"}) {
    EXPECT_EQ(Delete(At(name), false), 3u) << name;
    EXPECT_EQ(Delete(At(name), true), 4u) << name;
  }
  EXPECT_EQ(Delete(At("full"), false), 4u);
  EXPECT_EQ(ThrownCode([] { CUDirectory::Delete(CUSharedPtr<CUStringMac>{}, true); }), 2u);
  EXPECT_EQ(ThrownCode([] { CUDirectory::GetFiles(Make("")); }), 1u);
  EXPECT_EQ(Delete(At("to-full"), false), 0u);
  EXPECT_EQ(There({"full/empty", "file", "to-file", "none", "to-full"}), "++++-");
}

// Subdirectories go before files, so what is refused below keeps the files above.
TEST_F(CUDirectoryInfoTest, StopsAtTheFirstRefusal) {
  fs::create_directories(At("tree/sub/empty"));
  for (char const* const name : {"tree/sub/held", "tree/file"}) WriteFile(At(name), "");
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  // What another user is told who deletes it, with these permissions of "tree/sub".
  auto const asNobody = [&](unsigned permissions) {
    fs::permissions(At("tree/sub"), fs::perms(permissions));
    std::string const code =
        InChild([&] { return BecomeNobody() ? to_string(Delete(At("tree"))) : "no"; });
    return code + There({"tree/file", "tree/sub", "tree/sub/held", "tree/sub/empty"});
  };
  fs::permissions(root, fs::perms(0755));
  EXPECT_EQ(asNobody(0755), "4++++");
  fs::remove(At("tree/sub/empty"));
  EXPECT_EQ(asNobody(0755), "8+++-");
  EXPECT_EQ(asNobody(01777), "8+++-") << "where all may write, but only owners delete";
  EXPECT_EQ(asNobody(0), "4+++-") << "what may not be read looks empty";
  EXPECT_EQ(asNobody(0777), "4++--");
}

// On a small stack, with few descriptors.
TEST_F(CUDirectoryInfoTest, GoesDeepAndWideWithinBounds) {
  std::string const wide = memory.Path() + "/wide";
  std::string deep = memory.Path();
  for (int level = 0; level < 1000; ++level) deep += "/n";
  ASSERT_EQ(Create(deep), 0u);
  fs::create_directories(wide + "/sub");
  for (int i = 0; i < 100000; ++i) {
    std::string const name = wide + (i % 10 == 0 ? "/sub/" : "/") + to_string(i);
    i % 100 == 1 ? mkdir(name.c_str(), 0700) : mknod(name.c_str(), S_IFREG | 0600, 0);
  }
  auto const withinBounds = [&] {
    rlimit const limit = {64, 64};
    setrlimit(RLIMIT_NOFILE, &limit);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 1 << 20);
    pthread_setattr_default_np(&attributes);
    std::string told;
    std::thread([&] {
      told = to_string(Files(wide).size()) + " " + to_string(Directories(wide).size());
      told += " " + to_string(Delete(memory.Path()));
    }).join();
    return told;
  };
  EXPECT_EQ(InChild(withinBounds), "89000 1001 0");
  EXPECT_FALSE(fs::exists(memory.Path()));
}

TEST_F(CUDirectoryInfoTest, RecyclesAndTellsFailures) {
  for (char const* const name : {"a/deep", "elsewhere/inner", "elsewhere/same", "same"}) {
    fs::create_directories(At(name));
  }
  WriteFile(At("a/deep/file"), "deep");
  WriteFile(At("file"), "");
  fs::create_symlink("elsewhere/inner", At("link"));
  auto const recycle = [&] {
    setenv("XDG_DATA_HOME", root.c_str(), 1);
    std::string codes;
    // A lexical reading of the first path would take another "same". Memory has no trash.
    for (auto const& path :
         {At("link/../same"), At("link/"), At("a"), At("a"), At("file"), memory.Path()}) {
      codes += to_string(ThrownCode([&] { CUDirectory::Recycle(Make(path)); }));
    }
    return codes;
  };
  EXPECT_EQ(InChild(recycle), "000334");
  EXPECT_EQ(There({"same", "elsewhere/same", "elsewhere/inner", "link", "a", "file"}), "+-+--+");
  EXPECT_EQ(There({"Trash/files/same", "Trash/info/same.trashinfo"}), "++");
  EXPECT_TRUE(fs::is_symlink(At("Trash/files/link")) && fs::exists(memory.Path()));
  EXPECT_EQ(ReadFile(At("Trash/files/a/deep/file")), "deep");
}
