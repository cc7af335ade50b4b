#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <set>
#include <thread>
#include <vector>

#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "tests/support/DirectoryReads.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/Mounts.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using std::to_string;
using namespace std::string_literals;
using Paths = std::set<std::string>;

// The error code that `work` throws; 0 for none.
template <class Work>
unsigned int Code(Work const& work) {
  try {
    work();
  } catch (unsigned int code) {
    return code;
  }
  return 0;
}

unsigned int Create(std::string const& path) {
  return Code([&] { CUDirectory::CreateDirectory(Make(path)); });
}
unsigned int Delete(std::string const& path, bool recursive) {
  return Code([&] { CUDirectory::Delete(Make(path), recursive); });
}

// The full paths in the array, whose objects must all be of the class; "?" where one is not.
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

bool SetImmutable(std::string const& path, bool immutable) {
  int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  int flags = 0;
  bool good = ioctl(file, FS_IOC_GETFLAGS, &flags) == 0;
  flags = immutable ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
  good = good && ioctl(file, FS_IOC_SETFLAGS, &flags) == 0;
  close(file);
  return good;
}

// Runs `work` on a thread with no more stack than `bytes`.
template <class Work>
void OnSmallStack(std::size_t bytes, Work work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, bytes);
  pthread_t thread;
  auto const run = [](void* context) -> void* {
    (*static_cast<Work*>(context))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// For what would take long on a disk.
char const* MemoryFolder() { return fs::exists("/dev/shm") ? "/dev/shm" : nullptr; }

class CUDirectoryInfoTest : public testing::Test {
 protected:
  std::string At(std::string const& name) const { return root + "/" + name; }
  Paths At(std::initializer_list<char const*> names) const {
    Paths paths;
    for (char const* const name : names) paths.insert(At(name));
    return paths;
  }
  bool Exists(std::string const& name) const { return fs::exists(fs::symlink_status(At(name))); }

  TemporaryFolder const folder;
  std::string const root = fs::canonical(folder.Path());
};

}  // namespace

TEST_F(CUDirectoryInfoTest, CreatesEveryMissingLevel) {
  WriteFile(At("file"), "");
  fs::create_directory(At("dir"));
  fs::create_symlink("dir", At("link"));
  fs::create_symlink("nothing", At("dangling"));
  fs::current_path(root);
  struct {
    std::string path;
    unsigned int code;
    std::string made;  // what exists afterwards
  } const cases[] = {
      {At("dir"), 0, "dir"},
      {"/", 0, "dir"},
      {At("a/b/c/d"), 0, "a/b/c/d"},
      {At("a/x//y///"), 0, "a/x/y"},
      {At("link/new"), 0, "dir/new"},
      {At("a/12:30/\xC3\xA4 \xF0\x9F\x8E\xAC"), 0, "a/12:30/\xC3\xA4 \xF0\x9F\x8E\xAC"},
      {At("n/../m/./o"), 0, "m/o"},
      {At(std::string(255, 'n')), 0, std::string(255, 'n')},
      {"dir/relative/deep", 0, "dir/relative/deep"},
      {"relative/deep", 4, "dir"},
      {At("file"), 4, "file"},
      {At("file/a/b"), 4, "file"},
      {At("dangling"), 4, "dangling"},
      {At("dangling/x"), 4, "dangling"},
      {At("half/") + std::string(256, 'n') + "/x", 4, "half"}};
  for (auto const& [path, code, made] : cases) {
    EXPECT_EQ(Create(path), code) << path;
    EXPECT_TRUE(Exists(made)) << path;
  }
  fs::current_path("/");
  EXPECT_FALSE(Exists("nothing") || Exists("relative"));

  std::string levels = root;
  while (levels.size() < 5000) levels += "/n";
  for (std::string const& hostile :
       {levels, std::string(5000, 'n'), root + std::string(100000, '/') + "x",
        std::string(100000, '/'), "x" + std::string(100000, '/'),
        std::string(1 << 20, '/') + "n/n"}) {
    EXPECT_EQ(Create(hostile), 4u) << hostile.size();
  }
  std::string longest = root;
  while (longest.size() + 202 < 4095) longest += "/" + std::string(200, 'n');
  longest += "/" + std::string(4094 - longest.size(), 'n');
  EXPECT_EQ(Create(longest), 0u);
  EXPECT_TRUE(CUDirectory::Exists(Make(longest)));
  EXPECT_FALSE(CUDirectoryInfo::CreateDirectory(nullptr));
  EXPECT_FALSE(CUDirectoryInfo::CreateDirectory(Make(At("p/q"))) || Exists("p"));
  EXPECT_FALSE(CUDirectoryInfo::CreateDirectory(Make("bare")));
}

TEST_F(CUDirectoryInfoTest, ListsFullPathsAndTakesLinksForFiles) {
  fs::create_directories(At("d/sub/below"));
  fs::create_directory(At("d/.hidden:dir"));
  for (char const* const name :
       {"d/file", "d/.dot", "d/a:b", "d/\xEF\xBB\xBF\xF0\x9F\x8E\xAC", "d/\xFF", "d/sub/x"}) {
    WriteFile(At(name), "");
  }
  fs::create_symlink("sub", At("d/to-sub"));
  fs::create_symlink("nothing", At("d/dangling"));
  fs::create_symlink("d", At("to-d"));
  ASSERT_EQ(mkfifo(At("d/fifo").c_str(), 0600), 0);
  fs::create_directory(At("d/\xC3"));

  EXPECT_EQ(Directories(At("d")), At({"d/sub", "d/.hidden:dir"}));
  EXPECT_EQ(Files(At("d/")), At({"d/file", "d/.dot", "d/a:b", "d/\xEF\xBB\xBF\xF0\x9F\x8E\xAC",
                                 "d/to-sub", "d/dangling", "d/fifo"}));
  EXPECT_EQ(Files(At("to-d/sub")), At({"to-d/sub/x"}));
  EXPECT_EQ(Directories(At("to-d")), At({"to-d/sub", "to-d/.hidden:dir"}));
  EXPECT_EQ(CUDirectory::GetFiles(Make(At("d/sub/below")))->Count(), 0u);
  for (std::string const name : {"missing", "d/file", "d/dangling", "d/file/"}) {
    EXPECT_EQ(Code([&] { Files(At(name)); }), 4u) << name;
    EXPECT_EQ(Code([&] { Directories(At(name)); }), 4u) << name;
  }
  if (geteuid() == 0) {
    fs::permissions(At("d"), fs::perms(0711));
    fs::permissions(root, fs::perms(0711));
    EXPECT_EQ(InChild([&] { return BecomeNobody() ? to_string(Files(At("d")).size()) : "skip"; }),
              "0");
  }
  fs::create_directory(At("many"));
  for (int i = 0; i < 2000; ++i) WriteFile(At("many/entry" + to_string(i)), "");
  EXPECT_EQ(Files(At("many")).size(), 2000u);
  DirectoryReads const failing(DirectoryReads::FailingAtSecond);
  std::size_t const some = Files(At("many")).size();
  EXPECT_TRUE(some > 100 && some < 2000) << some;
}

TEST_F(CUDirectoryInfoTest, TellsWhyItCannotDelete) {
  fs::create_directories(At("full/empty"));
  WriteFile(At("file"), "");
  for (char const* const name : {"full", "file", "nothing"}) {
    fs::create_symlink(name, At("to-"s + name));
  }
  struct {
    char const* name;
    unsigned int flat, recursive;
  } const cases[] = {{"missing", 3, 4},   {"file", 3, 4},       {"file/", 3, 4},
                     {"to-file", 3, 4},   {"to-nothing", 3, 4}, {"to-nothing/", 3, 4},
                     {"file/below", 3, 4}};
  for (auto const& [name, flat, recursive] : cases) {
    EXPECT_EQ(Delete(At(name), false), flat) << name;
    EXPECT_EQ(Delete(At(name), true), recursive) << name;
  }
  EXPECT_EQ(Delete(At("full"), false), 4u);
  EXPECT_EQ(Code([&] { CUDirectory::Delete(Make(At("full"))); }), 4u);
  for (bool const recursive : {false, true}) {
    for (char const* const path : {"to-full", "to-full/"}) {
      EXPECT_EQ(Delete(At(path), recursive), 0u) << path;
      EXPECT_FALSE(Exists("to-full")) << path;
      fs::create_symlink("full", At("to-full"));
    }
  }
  EXPECT_TRUE(Exists("full/empty") && Exists("file") && Exists("to-file") && Exists("to-nothing"));
  EXPECT_EQ(Delete(At("full/empty"), false), 0u);
  EXPECT_EQ(Delete(At("full"), true), 0u);
}

TEST_F(CUDirectoryInfoTest, DeletesATreeAndNothingElse) {
  for (char const* const name : {"outside/inner", "tree/a/b/c", "tree/x", "tree/y:z"}) {
    fs::create_directories(At(name));
  }
  // Each "a:b" must not become the "b" of "a".
  for (char const* const name : {"outside/file", "outside/inner/file", "tree/a:b", "tree/a/file",
                                 "tree/x/1", "tree/x:1", "tree/y:z/file", "tree/.hidden"}) {
    WriteFile(At(name), name);
  }
  std::pair<char const*, char const*> const links[] = {{"../outside", "tree/to-outside"},
                                                       {"../outside/file", "tree/to-file"},
                                                       {"..", "tree/a/up"},
                                                       {"b", "tree/a/inside"},
                                                       {"../nowhere", "tree/x/dangling"},
                                                       {"loop", "tree/x/loop"},
                                                       {"/", "tree/a/b/to-everything"},
                                                       {"../../tree/a", "tree/a/b/around"}};
  for (auto const& [target, link] : links) fs::create_symlink(target, At(link));
  ASSERT_EQ(mkfifo(At("tree/fifo").c_str(), 0600), 0);
  long const before = OpenDescriptors();
  EXPECT_EQ(Delete(At("tree"), true), 0u);
  EXPECT_FALSE(Exists("tree"));
  EXPECT_EQ(ReadFile(At("outside/file")) + ReadFile(At("outside/inner/file")),
            "outside/fileoutside/inner/file");
  EXPECT_EQ(OpenDescriptors(), before);

  // An entry that no string can name keeps its folder, and what stands beside it in its folder's.
  fs::create_directories(At("odd/\xFF/deep"));
  WriteFile(At("odd/plain"), "");
  EXPECT_EQ(Delete(At("odd"), true), 4u);
  EXPECT_TRUE(Exists("odd/\xFF/deep") && !Exists("odd/plain"));
}

TEST_F(CUDirectoryInfoTest, StopsAtTheFirstRefusal) {
  // Subdirectories go before files, so what is refused below keeps the files above.
  auto const fill = [&] {
    fs::create_directories(At("tree/sub/empty"));
    WriteFile(At("tree/sub/held"), "");
    WriteFile(At("tree/file"), "");
    return "";
  };
  auto const left = [&] {
    std::string names;
    for (char const* const name : {"tree/file", "tree/sub", "tree/sub/held", "tree/sub/empty"}) {
      names += Exists(name) ? "+" : "-";
    }
    return names;
  };
  fill();
  if (SetImmutable(At("tree/sub/held"), true)) {
    EXPECT_EQ(Delete(At("tree"), true), 8u);
    EXPECT_EQ(left(), "+++-");
    EXPECT_EQ(Code([&] { CUDirectory::Rename(Make(At("tree/sub/held")), Make("new")); }), 4u);
    SetImmutable(At("tree/sub/held"), false);
    SetImmutable(At("tree"), true);
    EXPECT_EQ(Delete(At("tree"), true), 4u);
    EXPECT_EQ(left(), "++--");
    SetImmutable(At("tree"), false);
  }
  fill();
  std::string const readOnly = InChild([&] {
    if (!OwnMountTable() || !MountBind(root, root) ||
        mount(nullptr, root.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
      return "4 8 4 4"s;
    }
    unsigned int const file = Code([&] { CUFileInfo(Make(At("tree/file"))).Delete(); });
    return to_string(Delete(At("tree"), true)) + " " + to_string(file) + " " +
           to_string(Create(At("new"))) + " " + to_string(Delete(At("tree/sub/empty"), false));
  });
  EXPECT_EQ(readOnly, "4 8 4 4");
  EXPECT_EQ(left(), "++++");
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  auto const asNobody = [&](std::string const& name) {
    return InChild([&] { return BecomeNobody() ? to_string(Delete(At(name), true)) : "skip"; });
  };
  fs::permissions(root, fs::perms(0755));
  fs::permissions(At("tree/sub/empty"), fs::perms(0777));
  EXPECT_EQ(asNobody("tree"), "4");
  fs::remove(At("tree/sub/empty"));
  EXPECT_EQ(asNobody("tree"), "8");
  // A folder that may not be read looks empty; one that may not be searched cannot be found.
  fs::permissions(At("tree/sub"), fs::perms(0));
  EXPECT_EQ(asNobody("tree"), "4");
  EXPECT_EQ(asNobody("tree/sub/held"), "4");
  EXPECT_EQ(left(), "+++-");
}

namespace {

// Removes an entry between its listing and its deletion.
class Racing : public CUDirectoryInfo {
 public:
  Racing(std::string const& path, std::string const& victim)
      : CUDirectoryInfo(Make(path)), m_victim(victim) {}
  CUSharedPtr<CUArray> GetObjects(bool wantDirectories) override {
    CUSharedPtr<CUArray> const objects = CUDirectoryInfo::GetObjects(wantDirectories);
    for (unsigned int i = 0; i < objects->Count(); ++i) {
      auto* const entry = dynamic_cast<CUFileSysytemInfo*>(objects->ObjectAtIndex(i).Get());
      if (Utf8(entry->GetFullName()) == m_victim) fs::remove_all(m_victim);
    }
    return objects;
  }

 private:
  std::string m_victim;
};

}  // namespace

TEST_F(CUDirectoryInfoTest, TakesVanishedFilesForDeleted) {
  fs::create_directories(At("tree/sub"));
  WriteFile(At("tree/file"), "");
  EXPECT_EQ(Code([&] { Racing(At("tree"), At("tree/sub")).Delete(true); }), 4u);
  EXPECT_TRUE(Exists("tree/file"));
  EXPECT_EQ(Code([&] { Racing(At("tree"), At("tree/file")).Delete(true); }), 0u);
  EXPECT_FALSE(Exists("tree"));

  // Against another who deletes the same tree, any code is right that tells of a directory.
  TemporaryFolder const inMemory(MemoryFolder());
  std::string const tree = inMemory.Path() + "/tree";
  std::set<unsigned int> codes;
  for (int round = 0; round < 20; ++round) {
    for (int i = 0; i < 50; ++i) {
      fs::create_directories(tree + "/d" + to_string(i) + "/e");
      WriteFile(tree + "/d" + to_string(i) + "/f", "");
    }
    std::thread other([&] {
      std::error_code ignored;
      fs::remove_all(tree, ignored);
    });
    codes.insert(Delete(tree, true));
    other.join();
    fs::remove_all(tree);
  }
  for (unsigned int const code : codes) EXPECT_TRUE(code == 0 || code == 3 || code == 4) << code;
}

TEST_F(CUDirectoryInfoTest, GoesAsDeepAsAPathAndAsWideAsADisk) {
  TemporaryFolder const inMemory(MemoryFolder());
  std::string deep = inMemory.Path();
  for (int level = 0; level < 1000; ++level) deep += "/n";
  ASSERT_EQ(Create(deep), 0u);
  long const before = OpenDescriptors();
  std::string const text = InChild([&] {
    rlimit const limit = {64, 64};
    setrlimit(RLIMIT_NOFILE, &limit);
    unsigned int code = 99;
    OnSmallStack(1 << 20, [&] { code = Delete(inMemory.Path() + "/n", true); });
    return to_string(code) + " " + to_string(fs::exists(inMemory.Path() + "/n"));
  });
  EXPECT_EQ(text, "0 0");
  std::string const wide = inMemory.Path() + "/wide";
  fs::create_directories(wide + "/sub");
  for (int i = 0; i < 100000; ++i) {
    std::string const name = wide + (i % 10 == 0 ? "/sub/" : "/") + to_string(i);
    if (i % 100 == 1) {
      fs::create_directory(name);
    } else {
      close(open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
  }
  EXPECT_EQ(CUDirectory::GetFiles(Make(wide))->Count(), 89000u);
  EXPECT_EQ(CUDirectory::GetDirectories(Make(wide))->Count(), 1001u);
  EXPECT_EQ(Delete(wide, true), 0u);
  EXPECT_FALSE(fs::exists(wide));
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(CUDirectoryInfoTest, RenamesWithoutReplacingOrMoving) {
  for (char const* const name : {"a", "b"}) fs::create_directory(At(name));
  fs::create_symlink("b", At("link"));
  CUDirectoryInfo entry(Make(At("a")));
  struct {
    std::string to;
    unsigned int code;
    char const* name;
  } const cases[] = {{"b", 4, "a"},
                     {"link", 4, "a"},
                     {"..", 4, "a"},
                     {"", 1, "a"},
                     {"12:30", 0, "12:30"},
                     {"x:y", 0, "x:y"},
                     {"\xC3\xA4", 0, "\xC3\xA4"}};
  for (auto const& [to, code, name] : cases) {
    EXPECT_EQ(Code([&, &to = to] { entry.Rename(Make(to)); }), code) << to;
    EXPECT_EQ(Utf8(entry.GetFullName()), At(name)) << to;
    EXPECT_TRUE(Exists(name)) << to;
  }
  CUDirectory::Rename(Make(At("link")), Make("new"));
  EXPECT_EQ(fs::read_symlink(At("new")), "b");
  EXPECT_EQ(Code([&] { CUDirectory::Rename(Make(At("gone")), Make("x")); }), 4u);
  EXPECT_EQ(Directories(root), At({"\xC3\xA4", "b"}));
}

TEST_F(CUDirectoryInfoTest, HasStaticFormsByBothPointers) {
  auto const path = Make(At("a/b"));
  auto const parent = Make(At("a"));
  CUSharedPtr<CUDirectoryInfo> const made = CUDirectory::CreateDirectory(path.Get());
  EXPECT_EQ(Utf8(made->GetFullName()), At("a/b"));
  WriteFile(At("a/f"), "");
  EXPECT_EQ(PathsIn<CUDirectoryInfo>(CUDirectory::GetDirectories(parent.Get())), At({"a/b"}));
  EXPECT_EQ(PathsIn<CUFileInfo>(CUDirectory::GetFiles(parent.Get())), At({"a/f"}));
  CUDirectory::Delete(path.Get());
  EXPECT_FALSE(Exists("a/b"));
  CUDirectory::Delete(parent.Get(), true);
  EXPECT_FALSE(Exists("a"));
  CUSharedPtr<CUStringMac> const null;
  EXPECT_EQ(Code([&] { CUDirectory::CreateDirectory(null); }), 2u);
  EXPECT_EQ(Code([&] { CUDirectory::Delete(null); }), 2u);
  EXPECT_EQ(Code([&] { CUDirectory::Delete(null, true); }), 2u);
  EXPECT_EQ(Code([&] { CUDirectory::GetFiles(null); }), 2u);
  EXPECT_EQ(Code([&] { CUDirectory::GetDirectories(Make("")); }), 1u);

  fs::create_directory(At("d"));
  WriteFile(At("d/f"), "");
  CUDirectoryInfo directory(Make(At("d")));
  long const before = OpenDescriptors();
  EXPECT_GT(FailEachAllocation([&] { Code([&] { directory.GetFiles(); }); },
                               [&] { EXPECT_EQ(OpenDescriptors(), before); }),
            2);
}

TEST_F(CUDirectoryInfoTest, RecyclesAndTellsFailures) {
  fs::create_directory(At("dir"));
  fs::create_symlink("nothing", At("dangling"));
  WriteFile(At("file"), "");
  TemporaryFolder const inMemory("/dev/shm");
  auto const work = [&] {
    setenv("XDG_DATA_HOME", root.c_str(), 1);
    std::string codes;
    for (std::string const& path :
         {At("dir"), At("dir"), At("file"), At("dangling"), inMemory.Path()}) {
      codes += to_string(Code([&] { CUDirectory::Recycle(Make(path)); }));
    }
    return codes;
  };
  EXPECT_EQ(InChild(work), "03334");
  EXPECT_TRUE(Exists("Trash/files/dir") && !Exists("dir") && fs::exists(inMemory.Path()));
}
