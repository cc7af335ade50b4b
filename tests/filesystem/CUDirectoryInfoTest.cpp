#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <thread>

#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "tests/support/DirectoryReads.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/Mounts.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ThrownCode.h"

namespace {

namespace fs = std::filesystem;
using std::to_string;
using namespace std::string_literals;
using Paths = std::set<std::string>;

CUSharedPtr<CUStringMac> const kNull;

unsigned int Create(std::string const& path) {
  return ThrownCode([&] { CUDirectory::CreateDirectory(Make(path)); });
}
unsigned int Delete(std::string const& path, bool recursive = true) {
  return ThrownCode([&] { CUDirectory::Delete(Make(path), recursive); });
}

// The full paths of what must all be of the class; "?" where it is not.
template <class Entry>
Paths PathsIn(CUSharedPtr<CUArray> const& objects) {
  Paths paths;
  for (unsigned int i = 0; i < objects->Count(); ++i) {
    auto* const entry = dynamic_cast<Entry*>(objects->ObjectAtIndex(i).Get());
    paths.insert(entry == nullptr ? "?" : Utf8(entry->GetFullName()));
  }
  return paths;
}
Paths Directories(std::string const& path) {
  return PathsIn<CUDirectoryInfo>(CUDirectory::GetDirectories(Make(path)));
}
Paths Files(std::string const& path) {
  return PathsIn<CUFileInfo>(CUDirectory::GetFiles(Make(path)));
}

// Removes an entry between its listing and its deletion.
class Racing : public CUDirectoryInfo {
 public:
  Racing(std::string const& path, std::string const& victim)
      : CUDirectoryInfo(Make(path)), m_victim(victim) {}
  CUSharedPtr<CUArray> GetObjects(bool wantDirectories) override {
    CUSharedPtr<CUArray> const objects = CUDirectoryInfo::GetObjects(wantDirectories);
    if (PathsIn<CUFileSysytemInfo>(objects).count(m_victim) != 0) fs::remove_all(m_victim);
    return objects;
  }

 private:
  std::string m_victim;
};

class CUDirectoryInfoTest : public testing::Test {
 protected:
  std::string At(std::string const& name) const { return root + "/" + name; }
  Paths At(std::initializer_list<char const*> names) const {
    Paths paths;
    for (char const* const name : names) paths.insert(At(name));
    return paths;
  }
  // A sign for each: whether it is there, of whatever kind.
  std::string There(std::initializer_list<char const*> names) const {
    std::string signs;
    for (char const* const name : names) {
      signs += fs::exists(fs::symlink_status(At(name))) ? "+" : "-";
    }
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
  std::string const name(255, 'n');
  struct {
    std::string path;
    unsigned int code;
    std::string made;  // what exists afterwards
  } const cases[] = {
      {At("dir"), 0, "dir"},
      {At("a/x//y///"), 0, "a/x/y"},
      {At("link/new"), 0, "dir/new"},
      {At("a/12:30/\xC3\xA4 \xF0\x9F\x8E\xAC"), 0, "a/12:30/\xC3\xA4 \xF0\x9F\x8E\xAC"},
      {At("n/../m/./o"), 0, "m/o"},
      {At(name), 0, name},
      {"dir/relative/deep", 0, "dir/relative/deep"},
      {"relative/deep", 4, "dir"},
      {At("file/a/b"), 4, "file"},
      {At("dangling/x"), 4, "dangling"},
      {At("half/") + name + "n/x", 4, "half"}};
  for (auto const& [path, code, made] : cases) {
    EXPECT_EQ(Create(path), code) << path;
    EXPECT_EQ(There({made.c_str()}), "+") << path;
  }
  fs::current_path("/");
  EXPECT_EQ(There({"nothing", "relative"}), "--");
  std::string levels = root;
  while (levels.size() < 5000) levels += "/n";
  for (std::string const& hostile :
       {levels, std::string(5000, 'n'), root + std::string(100000, '/') + "x",
        "x" + std::string(100000, '/'), std::string(1 << 20, '/') + "n/n"}) {
    EXPECT_EQ(Create(hostile), 4u) << hostile.size();
  }
  std::string longest = root;
  while (longest.size() + 202 < 4095) longest += "/" + std::string(200, 'n');
  longest += "/" + std::string(4094 - longest.size(), 'n');
  EXPECT_EQ(Create(longest), 0u);
  EXPECT_TRUE(CUDirectory::Exists(Make(longest)));
  EXPECT_FALSE(CUDirectoryInfo::CreateDirectory(nullptr));
  EXPECT_FALSE(CUDirectoryInfo::CreateDirectory(Make(At("p/q"))));
}

// Names with a colon, which the platform shows as a slash, must not become other paths.
TEST_F(CUDirectoryInfoTest, ListsFullPathsAndDeletesATreeAndNothingElse) {
  for (char const* const name : {"outside/inner", "tree/a/b", "tree/y:z", "tree/.d"}) {
    fs::create_directories(At(name));
  }
  for (char const* const name : {"outside/file", "outside/inner/file", "tree/a:b", "tree/a/f",
                                 "tree/.h", "tree/y:z/f", "tree/\xEF\xBB\xBF\xF0\x9F\x8E\xAC"}) {
    WriteFile(At(name), name);
  }
  std::pair<char const*, char const*> const links[] = {
      {"../outside", "tree/dir"}, {"../outside/file", "tree/to-file"},
      {"..", "tree/a/up"},        {"nothing", "tree/none"},
      {"loop", "tree/a/loop"},    {"/", "tree/a/b/all"}};
  for (auto const& [target, link] : links) fs::create_symlink(target, At(link));
  ASSERT_EQ(mkfifo(At("tree/fifo").c_str(), 0600), 0);

  EXPECT_EQ(Directories(At("tree")), At({"tree/a", "tree/y:z", "tree/.d"}));
  EXPECT_EQ(Files(At("tree/")), At({"tree/a:b", "tree/.h", "tree/\xEF\xBB\xBF\xF0\x9F\x8E\xAC",
                                    "tree/dir", "tree/to-file", "tree/none", "tree/fifo"}));
  EXPECT_EQ(Files(At("tree/dir")), At({"tree/dir/file"}));
  for (char const* const name : {"missing", "tree/.h", "tree/none", "tree/.h/"}) {
    EXPECT_EQ(ThrownCode([&] { Files(At(name)); }), 4u) << name;
  }
  fs::create_symlink("tree", At("to-tree"));
  for (std::string const link : {"to-tree", "tree/dir/"}) {
    EXPECT_EQ(Delete(At(link)), 0u);
    EXPECT_EQ(There({link.substr(0, 8).c_str(), "tree/.h"}), "-+") << link;
  }
  long const before = OpenDescriptors();
  EXPECT_EQ(Delete(At("tree")), 0u);
  EXPECT_EQ(There({"tree"}), "-");
  EXPECT_EQ(ReadFile(At("outside/file")) + ReadFile(At("outside/inner/file")),
            "outside/fileoutside/inner/file");
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
  fs::create_symlink("file", At("to-file"));
  fs::create_symlink("nothing", At("none"));
  for (char const* const name :
       {"missing", "file", "file/", "to-file", "none", "none/", "file/x"}) {
    EXPECT_EQ(Delete(At(name), false), 3u) << name;
    EXPECT_EQ(Delete(At(name), true), 4u) << name;
  }
  EXPECT_EQ(Delete(At("full"), false), 4u);
  fs::create_symlink("full", At("to-full"));
  EXPECT_EQ(Delete(At("to-full"), false), 0u);
  EXPECT_EQ(There({"full/empty", "file", "to-file", "none", "to-full"}), "++++-");
}

// Subdirectories go before files, so what is refused below keeps the files above.
TEST_F(CUDirectoryInfoTest, StopsAtTheFirstRefusal) {
  fs::create_directories(At("tree/sub/empty"));
  for (char const* const name : {"tree/sub/held", "tree/file"}) WriteFile(At(name), "");
  auto const left = [&] {
    return There({"tree/file", "tree/sub", "tree/sub/held", "tree/sub/empty"});
  };
  std::string const readOnly = InChild([&] {
    if (!OwnMountTable() || !MountReadOnly(root)) return "no mount"s;
    unsigned int const file = ThrownCode([&] { CUFileInfo(Make(At("tree/file"))).Delete(); });
    return to_string(Delete(At("tree"))) + to_string(file) + to_string(Create(At("new"))) + left();
  });
  EXPECT_EQ(readOnly, readOnly == "no mount" ? "no mount" : "484++++");
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  // What another user is told who deletes `name`, with these permissions of "tree/sub".
  auto const asNobody = [&](unsigned permissions, std::string const& name = "tree") {
    fs::permissions(At("tree/sub"), fs::perms(permissions));
    std::string const code = InChild([&] {
      if (!BecomeNobody()) return "no other user"s;
      if (permissions == 0 && !Files(At("tree/sub")).empty()) return "listed"s;
      return to_string(Delete(At(name)));
    });
    return code + left();
  };
  fs::permissions(root, fs::perms(0755));
  EXPECT_EQ(asNobody(0755), "4++++");
  fs::remove(At("tree/sub/empty"));
  EXPECT_EQ(asNobody(0755), "8+++-");
  EXPECT_EQ(asNobody(01777), "8+++-") << "where all may write, but only owners delete";
  // A folder that may not be read looks empty; what is in it cannot be found.
  EXPECT_EQ(asNobody(0), "4+++-");
  EXPECT_EQ(asNobody(0, "tree/sub/held"), "4+++-");
  EXPECT_EQ(asNobody(0777), "4++--");
  if (readOnly == "no mount") GTEST_SKIP() << "this user may not mount";
}

TEST_F(CUDirectoryInfoTest, TakesVanishedFilesForDeleted) {
  fs::create_directories(At("tree/sub"));
  WriteFile(At("tree/file"), "");
  EXPECT_EQ(ThrownCode([&] { Racing(At("tree"), At("tree/sub")).Delete(true); }), 4u);
  EXPECT_EQ(There({"tree/file"}), "+");
  EXPECT_EQ(ThrownCode([&] { Racing(At("tree"), At("tree/file")).Delete(true); }), 0u);
  EXPECT_EQ(There({"tree"}), "-");
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
  EXPECT_EQ(InChild([&] {
              rlimit const limit = {64, 64};
              setrlimit(RLIMIT_NOFILE, &limit);
              pthread_attr_t attributes;
              pthread_attr_init(&attributes);
              pthread_attr_setstacksize(&attributes, 1 << 20);
              pthread_setattr_default_np(&attributes);
              std::string told;
              std::thread([&] {
                told = to_string(Files(wide).size()) + " " + to_string(Directories(wide).size());
                {
                  DirectoryReads const failing(DirectoryReads::FailingAtSecond);
                  std::size_t const some = Files(wide).size();
                  told += some > 100 && some < 89000 ? " some " : " all or none ";
                }
                told += to_string(Delete(memory.Path()));
              }).join();
              return told;
            }),
            "89000 1001 some 0");
  EXPECT_FALSE(fs::exists(memory.Path()));
}

TEST_F(CUDirectoryInfoTest, HasStaticFormsByBothPointers) {
  auto const path = Make(At("a/b")), parent = Make(At("a"));
  EXPECT_EQ(Utf8(CUDirectory::CreateDirectory(path.Get())->GetFullName()), At("a/b"));
  WriteFile(At("a/f"), "");
  EXPECT_EQ(PathsIn<CUDirectoryInfo>(CUDirectory::GetDirectories(parent.Get())), At({"a/b"}));
  EXPECT_EQ(PathsIn<CUFileInfo>(CUDirectory::GetFiles(parent.Get())), At({"a/f"}));
  CUDirectory::Delete(path.Get());
  CUDirectory::Rename(parent, Make("b"));
  EXPECT_EQ(There({"a", "b/f", "b/b"}), "-+-");
  EXPECT_EQ(ThrownCode([&] { CUDirectory::Rename(parent, Make("c")); }), 4u) << "it has gone";
  CUDirectory::Delete(Make(At("b")).Get(), true);
  EXPECT_EQ(There({"b"}), "-");
  EXPECT_EQ(ThrownCode([&] { CUDirectory::CreateDirectory(kNull); }), 2u);
  EXPECT_EQ(ThrownCode([&] { CUDirectory::Delete(kNull, true); }), 2u);
  EXPECT_EQ(ThrownCode([&] { CUDirectory::GetFiles(Make("")); }), 1u);
}

TEST_F(CUDirectoryInfoTest, RecyclesAndTellsFailures) {
  fs::create_directory(At("dir"));
  fs::create_symlink("nothing", At("none"));
  WriteFile(At("file"), "");
  EXPECT_EQ(
      InChild([&] {
        setenv("XDG_DATA_HOME", root.c_str(), 1);
        std::string codes;
        for (auto const& path : {At("dir"), At("dir"), At("file"), At("none"), memory.Path()}) {
          codes += to_string(ThrownCode([&] { CUDirectory::Recycle(Make(path)); }));
        }
        return codes;
      }),
      "03334");
  EXPECT_EQ(There({"Trash/files/dir", "dir", "file"}), "+-+");
  EXPECT_TRUE(fs::exists(memory.Path()));
}
