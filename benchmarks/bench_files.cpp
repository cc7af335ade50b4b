// Copies, moves, listings and deletions beside their peers, in the temporary folder. For the copies
// that should lie on a disk: what a memory file system does is another matter.

#include <Poco/File.h>
#include <dirent.h>
#include <fcntl.h>
#include <gio/gio.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUDirectoryInfo.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "benchmarks/Cases.h"
#include "benchmarks/TemporaryFiles.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kCopiedSize = std::size_t{1} << 30;
// The source, the copy, and room for the system to breathe.
constexpr std::uintmax_t kRoomForCopies = 6'000'000'000;
constexpr std::size_t kListedFiles = 10000;
constexpr int kFolders = 100;
constexpr int kFilesInFolder = 100;

template <class Object>
struct Unref {
  void operator()(Object* object) const { g_object_unref(object); }
};
using GioFile = std::unique_ptr<GFile, Unref<GFile>>;

GioFile Gio(std::string const& path) { return GioFile(g_file_new_for_path(path.c_str())); }

void MakeEmptyFile(std::string const& path) {
  Descriptor const file(path, O_WRONLY | O_CREAT | O_EXCL);
}

bool GoOn(unsigned long long, unsigned long long, void* calls) {
  ++*static_cast<int*>(calls);
  return true;
}

// Copies. Each has a destination that was not there, and tells whether it is done.

using CopyOrMove = bool (*)(std::string const& from, std::string const& to);

bool CopyOurs(std::string const& from, std::string const& to) {
  int calls = 0;
  _CopyProgress_Info progress = {GoOn, &calls, nullptr};
  CUFileInfo file(SharedOurs(from));
  return file.CopyWithProgress(SharedOurs(to), &progress, false) == CUResult_Success && calls > 0;
}

bool CopyByCp(std::string const& from, std::string const& to) {
  std::string program = "cp";
  std::string source = from;
  std::string destination = to;
  char* const arguments[] = {program.data(), source.data(), destination.data(), nullptr};
  pid_t process = 0;
  int status = 0;
  return posix_spawnp(&process, "cp", nullptr, nullptr, arguments, environ) == 0 &&
         waitpid(process, &status, 0) == process && status == 0;
}

void IgnoreProgress(goffset, goffset, void*) {}

bool CopyByGio(std::string const& from, std::string const& to) {
  return g_file_copy(Gio(from).get(), Gio(to).get(), G_FILE_COPY_NONE, nullptr, IgnoreProgress,
                     nullptr, nullptr) != FALSE;
}

bool CopyByPoco(std::string const& from, std::string const& to) {
  Poco::File(from).copyTo(to);
  return true;
}

// Made when the first copy is measured.
std::string const& CopiedFile() {
  static std::string const path = [] {
    std::string const made = TheFolder().File("source");
    FillFile(made, kCopiedSize);
    return made;
  }();
  return path;
}

// The copy is removed as soon as it is measured, before the system begins to write it out. One
// iteration each time: the repetitions are what the median is taken of.
void RegisterCopy(std::string const& peer, CopyOrMove copy) {
  std::string const destination = TheFolder().File("copy");
  benchmark::RegisterBenchmark(("files/copy_1g/" + peer).c_str(),
                               [=](benchmark::State& state) {
                                 std::string const& source = CopiedFile();
                                 for (auto _ : state) {
                                   bool const done = copy(source, destination);
                                   state.PauseTiming();
                                   std::error_code error;
                                   if (!done || fs::file_size(destination, error) != kCopiedSize) {
                                     state.SkipWithError("a copy that is not whole");
                                   }
                                   fs::remove(destination, error);
                                   state.ResumeTiming();
                                 }
                               })
      ->Iterations(1)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

void RegisterCopies() {
  if (fs::space(TheFolder().Path()).available < kRoomForCopies) {
    std::cerr << "files/copy_1g is left out: " << TheFolder().Path()
              << " has less than 6 GB of free space\n";
    return;
  }
  RegisterCopy("quillmere", CopyOurs);
  RegisterCopy("cp", CopyByCp);
  RegisterCopy("std_copy_file", [](std::string const& from, std::string const& to) {
    return fs::copy_file(from, to);
  });
  RegisterCopy("g_file_copy", CopyByGio);
  RegisterCopy("qfile", [](std::string const& from, std::string const& to) {
    return QFile::copy(QString::fromStdString(from), QString::fromStdString(to));
  });
  RegisterCopy("poco_file", CopyByPoco);
}

// Moves within a volume: of a file of 4096 bytes, there and back in turns.

bool MoveOurs(std::string const& from, std::string const& to) {
  int calls = 0;
  _CopyProgress_Info progress = {GoOn, &calls, nullptr};
  CUFileInfo file(SharedOurs(from));
  return file.MoveWithProgress(SharedOurs(to), &progress, false) == CUResult_Success;
}

// What must be asked for the same promises: the source can be read, the destination is free.
bool RenameWithChecks(std::string const& from, std::string const& to) {
  struct stat facts;
  int const file = open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0 || fstat(file, &facts) != 0) return false;
  close(file);
  return stat(to.c_str(), &facts) != 0 && rename(from.c_str(), to.c_str()) == 0;
}

void RegisterMove(std::string const& peer, CopyOrMove move) {
  std::string const here = TheFolder().File("here-" + peer);
  std::string const there = TheFolder().File("there-" + peer);
  {
    Descriptor const file(here, O_WRONLY | O_CREAT);
    if (ftruncate(file.Get(), 4096) != 0) std::abort();
  }
  bool isHere = true;
  benchmark::RegisterBenchmark(("files/move/" + peer).c_str(),
                               [=](benchmark::State& state) mutable {
                                 for (auto _ : state) {
                                   if (!(isHere ? move(here, there) : move(there, here))) {
                                     state.SkipWithError("a move that is not done");
                                     break;
                                   }
                                   isHere = !isHere;
                                 }
                               })
      ->UseRealTime();
}

void RegisterMoves() {
  RegisterMove("quillmere", MoveOurs);
  RegisterMove("rename", [](std::string const& from, std::string const& to) {
    return rename(from.c_str(), to.c_str()) == 0;
  });
  RegisterMove("rename_with_checks", RenameWithChecks);
  RegisterMove("g_file_move", [](std::string const& from, std::string const& to) {
    return g_file_move(Gio(from).get(), Gio(to).get(), G_FILE_COPY_NONE, nullptr, IgnoreProgress,
                       nullptr, nullptr) != FALSE;
  });
  RegisterMove("qfile", [](std::string const& from, std::string const& to) {
    return QFile::rename(QString::fromStdString(from), QString::fromStdString(to));
  });
  RegisterMove("poco_file", [](std::string const& from, std::string const& to) {
    Poco::File(from).renameTo(to);
    return true;
  });
}

// Listings of a folder's files as objects that know their full paths, in the order in which the
// system gives them.

std::size_t ReadDirectory(char const* path) {
  std::unique_ptr<DIR, int (*)(DIR*)> const directory(opendir(path), closedir);
  std::size_t count = 0;
  while (dirent const* const entry = readdir(directory.get())) count += entry->d_type == DT_REG;
  return count;
}

std::size_t ListByGio(char const* path) {
  GioFile const directory(g_file_new_for_path(path));
  std::unique_ptr<GFileEnumerator, Unref<GFileEnumerator>> const enumerator(
      g_file_enumerate_children(directory.get(),
                                G_FILE_ATTRIBUTE_STANDARD_NAME "," G_FILE_ATTRIBUTE_STANDARD_TYPE,
                                G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, nullptr));
  std::vector<GioFile> files;
  for (;;) {
    GFileInfo* info = nullptr;  // lent, as the child is
    GFile* child = nullptr;
    if (!g_file_enumerator_iterate(enumerator.get(), &info, &child, nullptr, nullptr) ||
        info == nullptr) {
      return files.size();
    }
    if (g_file_info_get_file_type(info) != G_FILE_TYPE_DIRECTORY) {
      files.emplace_back(static_cast<GFile*>(g_object_ref(child)));
    }
  }
}

std::size_t ListByStandard(char const* path) {
  std::vector<fs::path> files;
  for (fs::directory_entry const& entry : fs::directory_iterator(path)) {
    if (entry.is_symlink() || !entry.is_directory()) files.push_back(entry.path());
  }
  return files.size();
}

// Made when the first listing is measured.
std::string const& ListedFolder() {
  static std::string const path = [] {
    std::string const made = TheFolder().File("listed");
    fs::create_directory(made);
    for (std::size_t i = 0; i < kListedFiles; ++i) {
      MakeEmptyFile(made + "/Reel 2, take " + std::to_string(i) + ".mov");
    }
    return made;
  }();
  return path;
}

void RegisterListings() {
  std::string const prefix = "files/list_10000/";
  MeasureChecked(prefix + "quillmere", kListedFiles, [] {
    CUDirectoryInfo directory(SharedOurs(ListedFolder()));
    return std::size_t{directory.GetFiles()->Count()};
  });
  MeasureChecked(prefix + "readdir", kListedFiles,
                 [] { return ReadDirectory(ListedFolder().c_str()); });
  MeasureChecked(prefix + "qdir", kListedFiles, [] {
    QDir const directory(QString::fromStdString(ListedFolder()));
    constexpr QDir::Filters kFiles = QDir::Files | QDir::Hidden | QDir::System;
    return static_cast<std::size_t>(directory.entryInfoList(kFiles, QDir::Unsorted).size());
  });
  MeasureChecked(prefix + "g_file_enumerator", kListedFiles,
                 [] { return ListByGio(ListedFolder().c_str()); });
  MeasureChecked(prefix + "std_directory_iterator", kListedFiles,
                 [] { return ListByStandard(ListedFolder().c_str()); });
  MeasureChecked(prefix + "poco_file", kListedFiles, [] {
    std::vector<Poco::File> files;
    Poco::File(ListedFolder()).list(files);
    return files.size();
  });
}

// Deletions of a tree, which is made untimed.

void MakeTree(std::string const& root) {
  fs::create_directory(root);
  for (int folder = 0; folder < kFolders; ++folder) {
    std::string const path = root + "/Reel " + std::to_string(folder);
    fs::create_directory(path);
    for (int file = 0; file < kFilesInFolder; ++file) {
      MakeEmptyFile(path + "/take " + std::to_string(file) + ".mov");
    }
  }
}

template <class Operation>
void RegisterDeletion(std::string const& peer, Operation remove) {
  std::string const root = TheFolder().File("tree");
  benchmark::RegisterBenchmark(("files/delete_10000/" + peer).c_str(),
                               [=](benchmark::State& state) {
                                 for (auto _ : state) {
                                   state.PauseTiming();
                                   MakeTree(root);
                                   state.ResumeTiming();
                                   remove(root);
                                   state.PauseTiming();
                                   if (fs::exists(root)) {
                                     state.SkipWithError("a tree that is not deleted");
                                     fs::remove_all(root);
                                   }
                                   state.ResumeTiming();
                                 }
                               })
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

void RegisterDeletions() {
  RegisterDeletion("quillmere",
                   [](std::string const& root) { CUDirectory::Delete(SharedOurs(root), true); });
  RegisterDeletion("std_remove_all", [](std::string const& root) { fs::remove_all(root); });
  RegisterDeletion("qdir", [](std::string const& root) {
    QDir(QString::fromStdString(root)).removeRecursively();
  });
  RegisterDeletion("poco_file", [](std::string const& root) { Poco::File(root).remove(true); });
}

void RegisterAll() {
  RegisterCopies();
  RegisterMoves();
  RegisterListings();
  RegisterDeletions();
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
