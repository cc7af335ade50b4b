// Every operation on files is run once for each system call that it makes, with that call failing,
// in each way that the call can fail, and then with all calls from there on failing.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <regex>

#include "QuillmereLib/QuillmereLib.h"
#include "tests/reliability/Sweeps.h"
#include "tests/support/FailingSystemCall.h"
#include "tests/support/Files.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/XmlDocuments.h"

// GIO forgets two texts where it cannot write what it notes of the trash. For the leak checker to
// see that they are GIO's, stacks must be followed without frame pointers.
extern "C" char const* __lsan_default_suppressions() { return "leak:libgio-2.0.so"; }
extern "C" char const* __asan_default_options() { return "fast_unwind_on_malloc=0"; }

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

std::string Text(std::size_t seed, std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(seed + i % 23 + i / 4096 % 3);
  return text;
}

// More than one piece of every way to copy but the fastest.
std::string const kSource = Text('a', 300001);
std::string const kOld = Text('A', 5000);
std::string const kDocument = "<a b='1'>text<c/>&amp;<?p d?></a>";

// Where the operations of one run work, and what has been heard of the run.
struct Place {
  std::string At(std::string const& name) const {
    return (name == "target" ? to : root) + "/" + name;
  }
  CUSharedPtr<CUStringMac> Path(std::string const& name) const { return Make(At(name)); }
  bool Has(std::string const& name) const { return fs::exists(fs::symlink_status(At(name))); }
  std::string Contents(std::string const& name) const {
    return Has(name) ? ReadFile(At(name)) : "none";
  }

  std::string root;
  std::string to;    // of "target", which may be on another volume
  std::string home;  // of the data of the user
  bool succeeded = false;
  CallFault fault = {};
  CallTrace trace = {};
};

using Step = std::function<void(Place const&)>;

struct Operation {
  char const* name;
  Step prepare;
  // Whether it says that all went well. An error code that it throws says no.
  std::function<bool(Place const&)> run;
  // What is wrong afterwards; empty where all is as it must be.
  std::function<std::string(Place const&)> harm;
  // Whether an interrupted call is made again. The libraries that know devices and trash do not.
  bool retries = true;
};

void Nothing(Place const&) {}
std::string Unharmed(Place const&) { return ""; }
std::string If(bool isHarmed, std::string const& what) { return isHarmed ? what : ""; }

void MakeSource(Place const& place) { WriteFile(place.At("source"), kSource); }
void MakeOld(Place const& place) { WriteFile(place.At("target"), kOld); }
void MakeBoth(Place const& place) {
  MakeSource(place);
  MakeOld(place);
}
void MakeSparseSource(Place const& place) {
  MakeBoth(place);
  fs::resize_file(place.At("source"), kSource.size() + 70000);
  setxattr(place.At("source").c_str(), "user.note", "abc", 3, 0);
}

// What succeeds unless it throws.
auto Doing(Step const& step) {
  return [step](Place const& place) { return step(place), true; };
}

auto Transferring(bool isMove, bool overwrite, char const* source = "source") {
  return [=](Place const& place) {
    return Transfer(place.At(source), place.At("target"), isMove, overwrite);
  };
}

auto CopyingBy(CopyMeans const& means) {
  return [means](Place const& place) {
    return Transfer({place.At("source"), place.root, "target", true, false, means});
  };
}

std::string CopyHarm(Place const& place) {
  std::string const source = place.Contents("source"), target = place.Contents("target");
  if (source.compare(0, kSource.size(), kSource) != 0) return "the source is not whole";
  if (target == source)
    return If(!place.succeeded && !place.fault.isLasting, "replaced, and failed");
  if (place.succeeded) return "the target is not the source";
  return If(target != "none" && target != kOld, "the target is neither old nor new");
}
std::string MoveHarm(Place const& place) {
  bool const isThere = place.Has("source");
  if (place.succeeded ? isThere : !isThere && !place.fault.isLasting) return "source and result";
  return isThere ? CopyHarm(place) : If(place.Contents("target") != kSource, "lost");
}
std::string LinkHarm(Place const& place) {
  bool const isThere = fs::is_symlink(place.At("target"));
  if (place.Contents("source") != kSource) return "the link was followed";
  if (!isThere && !place.Has("link")) return "the link is lost";
  return If(!place.fault.isLasting && place.succeeded != isThere, "link and result");
}

CUSharedPtr<CUFileStream> Open(Place const& place, char const* name, CUStream_FileMode mode,
                               CUStream_FileAccess access = CUStream_FileAccess_ReadWrite) {
  return new CUFileStream(place.Path(name).Get(), mode, access, false);
}

// What a stream wrote counts only if it said so; what was there before stays.
auto Writing(CUStream_FileMode mode) {
  return [mode](Place const& place) {
    auto const stream = Open(place, "target", mode);
    return WriteText(*stream, kSource, 0, CUStream_Seek_Origin_Current) == kSource.size();
  };
}

bool Read(Place const& place) {
  auto const stream = Open(place, "source", CUStream_FileMode_Open, CUStream_FileAccess_Read);
  std::string text(kSource.size(), '\0');
  auto* const bytes = reinterpret_cast<unsigned char*>(text.data());
  auto const count = stream->Read(bytes, text.size(), 0, CUStream_Seek_Origin_Begin);
  if (text.compare(0, count, kSource, 0, count) != 0) throw std::logic_error("other bytes");
  return count == kSource.size();
}

bool LoadDocument(Place const& place) {
  CUXmlDomDocumentNode document;
  bool const isLoaded = document.LoadXml(Open(place, "xml", CUStream_FileMode_Open,
                                              CUStream_FileAccess_Read)) == CUResult_Success;
  std::string const text = isLoaded ? Written(document) : "<c></c>";
  return text.find("<c></c>") == text.npos ? throw std::logic_error(text) : isLoaded;
}

void MakeTree(Place const& place) {
  MakeSource(place);
  fs::create_directories(place.At("tree/a/b"));
  for (auto name : {"tree/1", "tree/2", "tree/a/3", "tree/a/b/4"}) WriteFile(place.At(name), "x");
  fs::create_symlink("../source", place.At("tree/link"));
}
bool ListTree(Place const& place) {
  CUDirectoryInfo tree(place.Path("tree"));
  CUSharedPtr<CUArray> const files = tree.GetFiles();
  CUSharedPtr<CUArray> const folders = tree.GetDirectories();
  for (auto const& each : *files->GetInternalArray()) {
    std::string const path = Utf8(dynamic_cast<CUFileInfo&>(*each).GetFullName());
    if (!std::regex_match(path, std::regex(".*/tree/(1|2|link)"))) throw std::logic_error(path);
  }
  return files->Count() == 3 && folders->Count() == 1;
}

std::string TrashHarm(Place const& place) {
  std::string const stayed = place.Contents("folder/old");
  if (place.succeeded ? stayed != "none" : stayed != kOld && !place.fault.isLasting) {
    return "not in its place";
  }
  return If(stayed != kOld && ReadFile(place.home + "/Trash/files/folder/old") != kOld, "lost");
}

// A log file with but "message;" for each whole line.
std::string LinesOf(std::string const& path) {
  static std::regex const line(R"(\[[^\]]{19}\]\t\[ERROR\]\t([^\r]*)\r\n)");
  return std::regex_replace(ReadFile(path), line, "$1;");
}

void StartLog(Place const& place) { CULog::InitializeWithName(Make(place.root), Make("l"), 3); }
void LogNew(Place const&) { CULog::Write(1, "new"); }

auto LinesHarm(std::string const& before) {
  return [before](Place const& place) {
    std::string const lines = LinesOf(place.At("l0.log"));
    bool const mustBeThere = place.trace.failed == 0 || place.fault.error == EINTR;
    CULog::Write(1, "next");
    CULog::Terminate();
    if (lines != before + "new;" && (mustBeThere || lines != before)) return "lines: " + lines;
    std::string const next = LinesOf(place.At("l0.log"));
    return If(next != lines + "next;", "next lines: " + next);
  };
}

// A failure may leave the log at the full file, behind whose dots no line is whole.
std::string NextFileHarm(Place const& place) {
  if (fs::file_size(place.At("l0.log")) < 999990) return "the full file has lost lines";
  CULog::Write(1, "next");
  CULog::Terminate();
  std::string const lines = LinesOf(place.At("l1.log"));
  return If(lines != "new;next;" && lines != "next;", "lines: " + lines);
}

std::string RowsFile(Place const& place) {
  return place.home + "/Tavik_Inc_IC/Quillmere/QMR_ImageStabilization.csv";
}

// Where its folder cannot be made, a logger says so, and there are no rows.
void FlushRows(std::string const& path) {
  try {
    CUPerformanceLogger logger("1", true);
    for (int i = 0; i < 3; ++i) {
      logger.StartLog(LoggerType_ImageStabilization, path, ImageStabLogData());
      logger.EndLog(LoggerType_ImageStabilization, path);
    }
    logger.Flush(LoggerType_ImageStabilization);
  } catch (unsigned int) {
  }
}

// The file of rows with but "/path;" for each whole row, and no head, which must be there if
// `withHead`.
std::string PathsIn(Place const& place, bool withHead) {
  static std::regex const row(R"~("SUCCESS",("[^"]*",){3}"0.000","(/\w+)","1","",""\r\n)~");
  static std::regex const head("(\xEF\xBB\xBF)?(Status,[^\r]*,Correction Strength\r\n)?");
  std::string const file = std::regex_replace(ReadFile(RowsFile(place)), row, "$2;");
  std::smatch found;
  std::regex_search(file, found, head, std::regex_constants::match_continuous);
  bool const isWhole = found[1].matched && found[2].matched;
  return withHead && !isWhole ? "not the head: " + file.substr(0, 60) : found.suffix().str();
}

// Of the rows that were there, of those that were to be added, and of those added next.
auto RowsHarm(std::string const& before) {
  return [before](Place const& place) {
    bool const mustBeThere = place.trace.failed == 0;
    // The head is put once. Where that fails the rows come all the same.
    bool const withHead = mustBeThere || !before.empty();
    std::string const paths = PathsIn(place, withHead);
    bool const areKept = !mustBeThere && paths == before;
    if (paths != before + "/new;/new;/new;" && !areKept) return "rows: " + paths;
    FlushRows("/next");
    std::string const next = PathsIn(place, withHead);
    return If(next != paths + "/next;/next;/next;", "next rows: " + next);
  };
}

constexpr bool kCopy = false, kMove = true;

Operation const kOperations[] = {
    {"stream, new file", Nothing, Writing(CUStream_FileMode_Create),
     [](auto& place) {
       return If(place.succeeded && place.Contents("target") != kSource, "not written");
     }},
    {"stream, appending", MakeOld, Writing(CUStream_FileMode_Append),
     [](auto& place) -> std::string {
       std::string const target = place.Contents("target");
       if (target.compare(0, kOld.size(), kOld) != 0) return "the old bytes are lost";
       // A failure may have made the file longer already.
       std::size_t const start = std::max(target.size(), kSource.size()) - kSource.size();
       return If(place.succeeded && target.substr(start) != kSource, "not appended");
     }},
    {"stream, reading", MakeSource, Read, Unharmed},
    {"stream, new length", MakeSource,
     [](auto& place) {
       auto const stream = Open(place, "source", CUStream_FileMode_Open);
       stream->SetLength(5000);
       return stream->IsOSFileHandleValid();
     },
     [](auto& place) -> std::string {
       std::string const left = place.Contents("source");
       if (kSource.compare(0, left.size(), left) != 0) return "other bytes";
       return If(place.succeeded && left.size() != 5000, "not cut");
     }},
    {"copy", MakeSource, Transferring(kCopy, false), CopyHarm},
    {"copy over an old file", MakeBoth, Transferring(kCopy, true), CopyHarm},
    {"copy of holes and attributes", MakeSparseSource, Transferring(kCopy, true), CopyHarm},
    {"copy, without splice", MakeBoth, CopyingBy({false, true, false, true, true}), CopyHarm},
    {"copy, by reading and writing", MakeBoth, CopyingBy({false, false, false, true, true}),
     CopyHarm},
    {"copy, by a hidden name", MakeBoth, CopyingBy({false, false, true, false, true}), CopyHarm},
    {"copy, with nothing to help", MakeBoth, CopyingBy({false, false, false, false, false}),
     CopyHarm},
    {"move", MakeSource, Transferring(kMove, false), MoveHarm},
    {"move over an old file", MakeBoth, Transferring(kMove, true), MoveHarm},
    {"move to another volume", MakeBoth, Transferring(kMove, true), MoveHarm},
    {"move of a link to another volume",
     [](auto& place) {
       MakeSource(place);
       fs::create_symlink(place.At("source"), place.At("link"));
     },
     Transferring(kMove, false, "link"), LinkHarm},
    {"delete a file", MakeBoth, Doing([](auto& place) { CUFile::Delete(place.Path("target")); }),
     [](auto& place) {
       // A file that the system does not show counts as deleted.
       if (place.fault.error == ENOENT || "fstatat"s == place.trace.lastFailed) return ""s;
       return If(place.succeeded == place.Has("target"), "deletion and result");
     }},
    {"rename a file", MakeSource,
     Doing([](auto& place) { CUFile::Rename(place.Path("source"), Make("target")); }),
     [](auto& place) {
       return If(place.Contents(place.succeeded ? "target" : "source") != kSource, "lost");
     }},
    {"make directories", Nothing,
     Doing([](auto& place) { CUDirectory::CreateDirectory(place.Path("a/b/c")); }),
     [](auto& place) { return If(place.succeeded && !place.Has("a/b/c"), "not made"); }},
    {"delete a tree", MakeTree,
     Doing([](auto& place) { CUDirectory::Delete(place.Path("tree"), true); }),
     [](auto& place) -> std::string {
       if (place.Contents("source") != kSource) return "a link was followed";
       return If(place.succeeded && place.Has("tree"), "the tree is there");
     }},
    {"list a directory", MakeTree, ListTree, Unharmed},
    {"look at a file", MakeSource,
     [](auto& place) {
       CUFileInfo file(place.Path("source"));
       return file.Exists() && file.Length() == kSource.size();
     },
     Unharmed},
    {"look at a drive", Nothing,
     [](auto& place) {
       CUDriveInfo drive(Make(place.root));
       drive.GetDisplayString();
       return drive.IsReady() && drive.GetTotalSize() > 0 && drive.GetTotalFreeSize() > 0;
     },
     Unharmed, false},
    {"put into the trash",
     [](auto& place) {
       fs::create_directory(place.At("folder"));
       WriteFile(place.At("folder/old"), kOld);
     },
     Doing([](auto& place) { CUDirectory::Recycle(place.Path("folder")); }), TrashHarm, false},
    {"load a document", [](auto& place) { WriteFile(place.At("xml"), kDocument); }, LoadDocument,
     Unharmed},
    {"write a document", Nothing,
     [](auto& place) {
       CUXmlDomDocumentNode document;
       document.LoadXml(StreamOf(kDocument));
       return document.WriteXml(Open(place, "xml", CUStream_FileMode_Create)) == CUResult_Success;
     },
     [](auto& place) {
       return If(place.succeeded && Loaded(place.Contents("xml")) != Loaded(kDocument), "other");
     }},
    {"start a log", Nothing,
     Doing([](auto& place) { CULog::InitializeWithName(place.Path("a/b"), Make("l"), 3); }),
     [](auto& place) {
       CULog::Terminate();
       return If(place.succeeded && !place.Has("a/b"), "no folder");
     }},
    {"log, first line", StartLog, Doing(LogNew), LinesHarm("")},
    {"log, next line",
     [](auto& place) {
       StartLog(place);
       CULog::Write(1, "earlier");
     },
     Doing(LogNew), LinesHarm("earlier;")},
    {"log, turn to the next file",
     [](auto& place) {
       WriteFile(place.At("l0.log"), std::string(999990, '.'));
       StartLog(place);
     },
     Doing(LogNew), NextFileHarm},
    {"flush the first rows", [](auto& place) { fs::remove(RowsFile(place)); },
     Doing([](auto&) { FlushRows("/new"); }), RowsHarm("")},
    {"flush more rows",
     [](auto& place) {
       fs::remove(RowsFile(place));
       FlushRows("/old");
     },
     Doing([](auto&) { FlushRows("/new"); }), RowsHarm("/old;/old;/old;")},
};

// The run's own account: error codes are failures that are told.
bool RunOnce(Operation const& operation, Place const& place, std::string* threw) {
  try {
    return operation.run(place);
  } catch (unsigned int) {
  } catch (std::exception const& error) {
    *threw = error.what();
  }
  return false;
}

bool IsToAnotherVolume(Operation const& operation) {
  return std::strstr(operation.name, "another volume") != nullptr;
}

// One run; what is wrong after it.
std::string Try(Operation const& operation, CallFault const& fault, CallTrace* trace) {
  TemporaryFolder const folder, far("/dev/shm");
  std::string const to = (IsToAnotherVolume(operation) ? far : folder).Path();
  Place place = {folder.Path(), to, UserData(), false, fault, {}};
  WriteFile(place.At("bystander"), kOld);
  fs::remove_all(place.home + "/Trash");
  operation.prepare(place);
  long const descriptors = OpenDescriptors();
  std::string threw;
  place.trace = *trace =
      RunWithFault(fault, [&] { place.succeeded = RunOnce(operation, place, &threw); });
  if (!trace->isPossible) return "";
  if (!threw.empty()) return "threw " + threw;
  if (OpenDescriptors() != descriptors) return "a descriptor is left open";
  bool const mustSucceed = trace->failed == 0 || (fault.error == EINTR && operation.retries);
  if (mustSucceed && !place.succeeded) return "failed, and need not";
  std::string const harm = operation.harm(place);
  if (!harm.empty()) return harm;
  if (place.Contents("bystander") != kOld) return "another file is changed";
  // Nothing can be taken back where the system refuses to delete.
  if (trace->failedToDelete) return "";
  if (CountHidden(place.root) + CountHidden(place.to) != 0) return "a hidden file is left";
  if (place.succeeded) return "";
  // What failed works once the fault is gone.
  place.fault = {};
  place.trace = {};
  place.succeeded = RunOnce(operation, place, &threw);
  return place.succeeded ? operation.harm(place) : "fails for good";
}

}  // namespace

TEST(SystemCallSweep, NoFailureHarms) {
  signal(SIGXFSZ, SIG_IGN);
  PrintFigures("operation | system calls on files | runs with a failure | harm");
  int allRuns = 0, allHarmed = 0;
  struct stat here = {}, there = {};
  stat(UserData().c_str(), &here);
  bool const hasTwoVolumes = stat("/dev/shm", &there) == 0 && here.st_dev != there.st_dev;
  for (Operation const& operation : kOperations) {
    if (IsToAnotherVolume(operation) && !hasTwoVolumes) {
      PrintFigures("%s | | none: no second volume |", operation.name);
      continue;
    }
    CallTrace trace;
    Try(operation, {}, &trace);  // makes what is made once a process, and stays open
    if (!trace.isPossible) GTEST_SKIP() << "the kernel does not let system calls be watched";
    ASSERT_EQ(Try(operation, {}, &trace), "") << operation.name;
    int const calls = trace.calls;
    int runs = 0, harmed = 0;
    for (bool const isLasting : {false, true}) {
      for (int const error : {EIO, ENOSPC, EACCES, EINTR, EMFILE, ENOENT}) {
        if (isLasting && (error == EINTR || error == ENOENT)) continue;
        // The short form takes a part of the calls, another one for each error.
        int const step = IsFull() ? 1 : calls > 100 ? 97 : 5;
        for (int nth = 1 + error % step;; nth += step) {
          std::string const harm = Try(operation, {error, nth, isLasting}, &trace);
          if (trace.failed == 0 && harm.empty()) break;
          ++runs;
          if (harm.empty()) continue;
          ++harmed;
          ADD_FAILURE() << operation.name << ", " << strerrorname_np(error) << " at call " << nth
                        << " (" << trace.lastFailed << (isLasting ? " and on): " : "): ") << harm;
        }
      }
    }
    PrintFigures("%s | %d | %d | %d", operation.name, calls, runs, harmed);
    allRuns += runs;
    allHarmed += harmed;
  }
  PrintFigures("all | | %d | %d", allRuns, allHarmed);
}
