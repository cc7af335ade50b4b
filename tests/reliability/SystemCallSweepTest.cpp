// Every operation on files is run once for each system call that it makes, with that call failing,
// in each way that the call can fail, and then with all calls from there on failing.

#include <CoreServices/CoreServices.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <vector>

#include "QuillmereLib/QuillmereLib.h"
#include "platform/linux/FileCopy.h"
#include "tests/reliability/Figures.h"
#include "tests/reliability/UserData.h"
#include "tests/support/FailingSystemCall.h"
#include "tests/support/Files.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/XmlDocuments.h"

// GIO forgets two texts where it cannot write what it notes of the trash. For the leak checker to
// see that they are GIO's, stacks must be followed without frame pointers.
extern "C" char const* __lsan_default_suppressions() { return "leak:libgio-2.0.so"; }
extern "C" char const* __asan_default_options() { return "fast_unwind_on_malloc=0"; }

namespace {

namespace fs = std::filesystem;

std::string Text(char seed, std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    text[i] = static_cast<char>(static_cast<std::size_t>(seed) + i % 23 + i / 4096 % 3);
  }
  return text;
}

// More than one piece of every way to copy but the fastest.
std::string const kSource = Text('a', 300001);
std::string const kOld = Text('A', 5000);
std::string const kDocument = "<a b='1'>text<c/>&amp;<?p d?></a>";

// Where the operations of one run work, and what has been heard of the run.
struct Place {
  std::string At(std::string const& name) const { return root + "/" + name; }
  bool Has(std::string const& name) const { return fs::exists(fs::symlink_status(At(name))); }
  std::string Contents(std::string const& name) const {
    return Has(name) ? ReadFile(At(name)) : "none";
  }

  std::string root;
  std::string far;   // on another volume, if there is one
  std::string home;  // of the data of the user
  bool succeeded = false;
  CallFault fault = {};
  CallTrace trace = {};
};

// Whether an interrupted call is made again. The libraries that know devices and trash do not.
enum class Retries { Yes, No };

struct Operation {
  char const* name;
  void (*prepare)(Place const&);
  // Whether it says that all went well. An error code that it throws says no.
  bool (*run)(Place const&);
  // What is wrong afterwards; empty where all is as it must be.
  std::string (*harm)(Place const&);
  Retries retries = Retries::Yes;
};

void Nothing(Place const&) {}
std::string Unharmed(Place const&) { return ""; }

void MakeSource(Place const& place) { WriteFile(place.At("source"), kSource); }
void MakeSourceAndOld(Place const& place) {
  MakeSource(place);
  WriteFile(place.At("target"), kOld);
}
void MakeSparseSource(Place const& place) {
  MakeSourceAndOld(place);
  fs::resize_file(place.At("source"), kSource.size() + 70000);
  setxattr(place.At("source").c_str(), "user.note", "abc", 3, 0);
}

bool Progress(unsigned long long, unsigned long long, void*) { return true; }

bool Transfer(std::string const& from, std::string const& to, bool isMove, bool overwrite) {
  _CopyProgress_Info info = {Progress, nullptr, nullptr};
  auto const transfer = isMove ? CUFile::MoveWithProgress : CUFile::CopyWithProgress;
  return transfer(Make(from), Make(to), &info, overwrite) == CUResult_Success;
}

struct Willing final : CopyObserver {
  bool Continues(UInt64, UInt64) override { return true; }
  bool Approves(UInt64) override { return true; }
};

bool CopyBy(Place const& place, CopyMeans const& means) {
  FileTask task = {place.At("source"), place.root, "target", true, false, means};
  Willing willing;
  return CopyFile(task, &willing) == noErr;
}

std::string TargetHarm(Place const& place, std::string const& target) {
  std::string const whole = place.Has("sparse") ? kSource + std::string(70000, '\0') : kSource;
  if (target == whole)
    return place.succeeded || place.fault.isLasting ? "" : "replaced, and failed";
  if (place.succeeded) return "the target is not the source";
  return target == "none" || target == kOld ? "" : "the target is neither old nor new";
}
std::string CopyHarm(Place const& place) {
  return place.Contents("source").substr(0, kSource.size()) == kSource
             ? TargetHarm(place, place.Contents("target"))
             : "the source is not whole";
}
std::string MoveHarm(Place const& place) {
  bool const isThere = place.Has("source");
  if (place.succeeded ? isThere : !isThere && !place.fault.isLasting) return "source and result";
  return isThere ? CopyHarm(place) : TargetHarm(place, place.Contents("target"));
}

// What a stream wrote counts only if it said so; what was there before stays.
bool WriteStream(Place const& place, CUStream_FileMode mode, std::string const& text) {
  CUFileStream stream(Make(place.At("target")).Get(), mode, CUStream_FileAccess_ReadWrite, false);
  bool const isWritten = WriteText(stream, text, 0, CUStream_Seek_Origin_Current) == text.size();
  stream.Close();
  return isWritten;
}

std::string Rows(int count, std::string const& path) {
  std::string rows;
  for (int i = 0; i < count; ++i) rows += path + ";";
  return rows;
}

// The paths in the rows, or what is wrong with the file. The head must be there with `withHead`.
std::string PathsIn(std::string const& file, bool withHead) {
  std::string const mark = "\xEF\xBB\xBF";
  std::string const header =
      "Status,Start DateTime,End DateTime,Process Time,Target Duration,File Path,Version,"
      "Detection Mode,Correction Strength\r\n";
  if (file == "none") return "";
  std::size_t at = 0;
  for (std::string const& part : {mark, header}) {
    if (file.compare(at, part.size(), part) == 0) {
      at += part.size();
    } else if (withHead) {
      return "not the head: " + file.substr(0, 60);
    }
  }
  std::string paths;
  for (std::size_t end = 0; at < file.size(); at = end + 2) {
    end = file.find("\r\n", at);
    std::string const row = file.substr(at, end == std::string::npos ? end : end - at);
    std::string const last = ",\"1\",\"m\",\"s\"";
    if (end == std::string::npos || row.size() < last.size() || row[0] != '"' ||
        row.substr(row.size() - last.size()) != last) {
      return "not a row: " + row;
    }
    std::size_t const path = row.find("\"/");
    paths += row.substr(path + 1, row.find('"', path + 1) - path - 1) + ";";
  }
  return paths;
}

char const kRowsFile[] = "/Tavik_Inc_IC/Quillmere/QMR_ImageStabilization.csv";

// Where its folder cannot be made, a logger says so, and there are no rows.
bool FlushRows(std::string const& path) {
  try {
    CUPerformanceLogger logger("1", true);
    ImageStabLogData data;
    data.detectionMode = "m";
    data.correctionStrength = "s";
    for (int i = 0; i < 3; ++i) {
      logger.StartLog(LoggerType_ImageStabilization, path, data);
      logger.EndLog(LoggerType_ImageStabilization, path);
    }
    logger.Flush(LoggerType_ImageStabilization);
  } catch (unsigned int) {
  }
  return true;
}

// Of the rows that were there, of those that were to be added, and of those added next.
std::string RowsHarm(Place const& place, std::string const& before) {
  auto const read = [&] {
    return fs::exists(place.home + kRowsFile) ? ReadFile(place.home + kRowsFile) : "none";
  };
  bool const mustBeThere = place.trace.failed == 0;
  // The head is put once. Where that fails the rows come all the same.
  bool const withHead = mustBeThere || !before.empty();
  std::string const paths = PathsIn(read(), withHead);
  std::string const whole = before + Rows(3, "/new");
  if (paths != whole && (mustBeThere || paths != before)) return "rows: " + paths;
  FlushRows("/next");
  std::string const next = PathsIn(read(), withHead);
  return next == paths + Rows(3, "/next") ? "" : "next rows: " + next;
}

void StartLog(Place const& place) { CULog::InitializeWithName(Make(place.root), Make("l"), 3); }
std::string Messages(std::string const& file) {
  std::string messages;
  for (std::size_t at = 0, end = 0; at < file.size(); at = end + 2) {
    end = file.find("\r\n", at);
    if (end == std::string::npos || end < at + 30 || file[at] != '[') return messages + "?";
    messages += file.substr(at + 30, end - at - 30) + ";";
  }
  return messages;
}
std::string LinesHarm(Place const& place, std::string const& file, std::string const& before) {
  std::string const lines = Messages(place.Has(file) ? ReadFile(place.At(file)) : "");
  bool const mustBeThere = place.trace.failed == 0 || place.fault.error == EINTR;
  CULog::Write(1, "next");
  CULog::Terminate();
  if (lines != before + "new;" && (mustBeThere || lines != before)) return "lines: " + lines;
  std::string const next = Messages(ReadFile(place.At(file)));
  return next == lines + "next;" ? "" : "next lines: " + next;
}

void MakeTree(Place const& place) {
  fs::create_directories(place.At("tree/a/b"));
  for (char const* const name : {"tree/1", "tree/2", "tree/a/3", "tree/a/b/4"}) {
    WriteFile(place.At(name), "x");
  }
  fs::create_symlink("../source", place.At("tree/link"));
  MakeSource(place);
}
std::string TreeHarm(Place const& place) {
  if (place.Contents("source") != kSource) return "a link was followed";
  return place.succeeded && place.Has("tree") ? "the tree is there" : "";
}

std::string TrashHarm(Place const& place) {
  std::string const inTrash = place.home + "/Trash/files/folder/target";
  std::string const moved = fs::exists(inTrash) ? ReadFile(inTrash) : "none";
  std::string const stayed = place.Contents("folder/target");
  if (place.succeeded ? stayed != "none" : stayed != kOld && !place.fault.isLasting) {
    return "not in its place";
  }
  return stayed == kOld || moved == kOld ? "" : "lost";
}

bool List(Place const& place) {
  CUDirectoryInfo tree(Make(place.At("tree")));
  CUSharedPtr<CUArray> const files = tree.GetFiles();
  CUSharedPtr<CUArray> const folders = tree.GetDirectories();
  for (unsigned int i = 0; i < files->Count(); ++i) {
    auto& file = dynamic_cast<CUFileInfo&>(*files->ObjectAtIndex(i));
    std::string const name = fs::path(Utf8(file.GetFullName())).filename();
    if (name != "1" && name != "2" && name != "link") throw std::logic_error(name);
  }
  return files->Count() == 3 && folders->Count() == 1;
}

Operation const kOperations[] = {
    {"stream, new file", Nothing,
     [](Place const& place) { return WriteStream(place, CUStream_FileMode_Create, kSource); },
     [](Place const& place) -> std::string {
       return place.succeeded && place.Contents("target") != kSource ? "not written" : "";
     }},
    {"stream, appending", [](Place const& place) { WriteFile(place.At("target"), kOld); },
     [](Place const& place) { return WriteStream(place, CUStream_FileMode_Append, kSource); },
     [](Place const& place) -> std::string {
       std::string const target = place.Contents("target");
       if (target.compare(0, kOld.size(), kOld) != 0) return "the old bytes are lost";
       // A failure may have made the file longer already.
       return place.succeeded && target.substr(target.size() - kSource.size()) != kSource
                  ? "not appended"
                  : "";
     }},
    {"stream, reading", MakeSource,
     [](Place const& place) {
       CUFileStream stream(Make(place.At("source")).Get(), CUStream_FileMode_Open,
                           CUStream_FileAccess_Read, false);
       std::string text(kSource.size(), '\0');
       auto* const bytes = reinterpret_cast<unsigned char*>(&text[0]);
       auto const count = stream.Read(bytes, text.size(), 0, CUStream_Seek_Origin_Begin);
       if (text.compare(0, count, kSource, 0, count) != 0) throw std::logic_error("other bytes");
       return count == kSource.size();
     },
     Unharmed},
    {"stream, new length", MakeSource,
     [](Place const& place) {
       CUFileStream stream(Make(place.At("source")).Get(), CUStream_FileMode_Open,
                           CUStream_FileAccess_ReadWrite, false);
       stream.SetLength(5000);
       return stream.IsOSFileHandleValid();
     },
     [](Place const& place) -> std::string {
       std::string const left = place.Contents("source");
       if (kSource.compare(0, left.size(), left) != 0) return "other bytes";
       return place.succeeded && left.size() != 5000 ? "not cut" : "";
     }},
    {"copy", MakeSource,
     [](Place const& place) {
       return Transfer(place.At("source"), place.At("target"), false, false);
     },
     CopyHarm},
    {"copy over an old file", MakeSourceAndOld,
     [](Place const& place) {
       return Transfer(place.At("source"), place.At("target"), false, true);
     },
     CopyHarm},
    {"copy of holes and attributes",
     [](Place const& place) {
       MakeSparseSource(place);
       WriteFile(place.At("sparse"), "");
     },
     [](Place const& place) {
       return Transfer(place.At("source"), place.At("target"), false, true);
     },
     CopyHarm},
    {"copy, without splice", MakeSourceAndOld,
     [](Place const& place) {
       return CopyBy(place, {false, true, false, true, true});
     },
     CopyHarm},
    {"copy, by reading and writing", MakeSourceAndOld,
     [](Place const& place) {
       return CopyBy(place, {false, false, false, true, true});
     },
     CopyHarm},
    {"copy, by a hidden name", MakeSourceAndOld,
     [](Place const& place) {
       return CopyBy(place, {false, false, true, false, true});
     },
     CopyHarm},
    {"copy, with nothing to help", MakeSourceAndOld,
     [](Place const& place) {
       return CopyBy(place, {false, false, false, false, false});
     },
     CopyHarm},
    {"move", MakeSource,
     [](Place const& place) {
       return Transfer(place.At("source"), place.At("target"), true, false);
     },
     MoveHarm},
    {"move over an old file", MakeSourceAndOld,
     [](Place const& place) {
       return Transfer(place.At("source"), place.At("target"), true, true);
     },
     MoveHarm},
    {"move to another volume",
     [](Place const& place) {
       MakeSource(place);
       WriteFile(place.far + "/target", kOld);
     },
     [](Place const& place) {
       return Transfer(place.At("source"), place.far + "/target", true, true);
     },
     [](Place const& place) -> std::string {
       std::string const target = ReadFile(place.far + "/target");
       if (place.Contents("source") != kSource) {
         return place.Has("source") || target != kSource ? "the source is not whole" : "";
       }
       return place.succeeded ? "the source is there" : TargetHarm(place, target);
     }},
    {"move of a link to another volume",
     [](Place const& place) {
       MakeSource(place);
       fs::create_symlink(place.At("source"), place.At("link"));
     },
     [](Place const& place) {
       return Transfer(place.At("link"), place.far + "/link", true, false);
     },
     [](Place const& place) -> std::string {
       bool const isThere = fs::is_symlink(place.far + "/link");
       if (place.Contents("source") != kSource) return "the link was followed";
       if (!isThere && !place.Has("link")) return "the link is lost";
       return place.fault.isLasting || place.succeeded == isThere ? "" : "link and result";
     }},
    {"delete a file", MakeSourceAndOld,
     [](Place const& place) {
       CUFile::Delete(Make(place.At("target")));
       return true;
     },
     [](Place const& place) -> std::string {
       // A file that the system does not show counts as deleted.
       bool const isShown =
           place.fault.error != ENOENT && std::string(place.trace.lastFailed) != "fstatat";
       return isShown && place.succeeded == place.Has("target") ? "deletion and result" : "";
     }},
    {"rename a file", MakeSource,
     [](Place const& place) {
       CUFile::Rename(Make(place.At("source")), Make("target"));
       return true;
     },
     [](Place const& place) -> std::string {
       return place.Contents(place.succeeded ? "target" : "source") == kSource ? "" : "lost";
     }},
    {"make directories", Nothing,
     [](Place const& place) {
       CUDirectory::CreateDirectory(Make(place.At("a/b/c")));
       return true;
     },
     [](Place const& place) -> std::string {
       return place.succeeded && !place.Has("a/b/c") ? "not made" : "";
     }},
    {"delete a tree", MakeTree,
     [](Place const& place) {
       CUDirectory::Delete(Make(place.At("tree")), true);
       return true;
     },
     TreeHarm},
    {"list a directory", MakeTree, List, Unharmed},
    {"look at a file", MakeSource,
     [](Place const& place) {
       CUFileInfo file(Make(place.At("source")));
       return file.Exists() && file.Length() == kSource.size();
     },
     Unharmed},
    {"look at a drive", Nothing,
     [](Place const& place) {
       CUDriveInfo drive(Make(place.root));
       drive.GetDisplayString();
       return drive.IsReady() && drive.GetTotalSize() > 0 && drive.GetTotalFreeSize() > 0;
     },
     Unharmed, Retries::No},
    {"put into the trash",
     [](Place const& place) {
       fs::create_directory(place.At("folder"));
       WriteFile(place.At("folder/target"), kOld);
     },
     [](Place const& place) {
       CUDirectory::Recycle(Make(place.At("folder")));
       return true;
     },
     TrashHarm, Retries::No},
    {"load a document", [](Place const& place) { WriteFile(place.At("xml"), kDocument); },
     [](Place const& place) {
       CUXmlDomDocumentNode document;
       CUSharedPtr<CUStream> const stream = new CUFileStream(
           Make(place.At("xml")).Get(), CUStream_FileMode_Open, CUStream_FileAccess_Read, false);
       bool const isLoaded = document.LoadXml(stream) == CUResult_Success;
       if (isLoaded && Written(document).find("<c></c>") == std::string::npos) {
         throw std::logic_error(Written(document));
       }
       return isLoaded;
     },
     Unharmed},
    {"write a document", Nothing,
     [](Place const& place) {
       CUXmlDomDocumentNode document;
       document.LoadXml(StreamOf(kDocument));
       CUSharedPtr<CUStream> const stream =
           new CUFileStream(Make(place.At("xml")).Get(), CUStream_FileMode_Create,
                            CUStream_FileAccess_ReadWrite, false);
       return document.WriteXml(stream) == CUResult_Success;
     },
     [](Place const& place) -> std::string {
       return place.succeeded && Loaded(place.Contents("xml")) != Loaded(kDocument) ? "other" : "";
     }},
    {"start a log", Nothing,
     [](Place const& place) {
       CULog::InitializeWithName(Make(place.At("a/b")), Make("l"), 3);
       return true;
     },
     [](Place const& place) -> std::string {
       CULog::Terminate();
       return place.succeeded && !place.Has("a/b") ? "no folder" : "";
     }},
    {"log, first line", StartLog,
     [](Place const&) {
       CULog::Write(1, "new");
       return true;
     },
     [](Place const& place) { return LinesHarm(place, "l0.log", ""); }},
    {"log, next line",
     [](Place const& place) {
       StartLog(place);
       CULog::Write(1, "%s", kSource.substr(0, 9).c_str());
     },
     [](Place const&) {
       CULog::Write(1, "new");
       return true;
     },
     [](Place const& place) { return LinesHarm(place, "l0.log", kSource.substr(0, 9) + ";"); }},
    {"log, turn to the next file",
     [](Place const& place) {
       WriteFile(place.At("l0.log"), std::string(999990, '.'));
       StartLog(place);
     },
     [](Place const&) {
       CULog::Write(1, "new");
       return true;
     },
     [](Place const& place) -> std::string {
       if (fs::file_size(place.At("l0.log")) < 999990) return "the full file has lost lines";
       // A failure may leave the log at the full file, behind whose dots no line is whole.
       CULog::Write(1, "next");
       CULog::Terminate();
       std::string const lines = Messages(place.Contents("l1.log"));
       bool const isSound = lines == "new;next;" || lines == "next;";
       return isSound ? "" : "lines: " + lines;
     }},
    {"flush the first rows", [](Place const& place) { fs::remove(place.home + kRowsFile); },
     [](Place const&) { return FlushRows("/new"); },
     [](Place const& place) { return RowsHarm(place, ""); }},
    {"flush more rows",
     [](Place const& place) {
       fs::remove(place.home + kRowsFile);
       FlushRows("/old");
     },
     [](Place const&) { return FlushRows("/new"); },
     [](Place const& place) { return RowsHarm(place, Rows(3, "/old")); }},
};

char const* NameOf(int error) {
  switch (error) {
    case EIO:
      return "EIO";
    case ENOSPC:
      return "ENOSPC";
    case EACCES:
      return "EACCES";
    case EINTR:
      return "EINTR";
    case EMFILE:
      return "EMFILE";
    case ENOENT:
      return "ENOENT";
    default:
      return "none";
  }
}

// The run's own account: error codes are failures that are told.
bool RunOnce(Operation const& operation, Place const& place, std::string* threw) {
  try {
    return operation.run(place);
  } catch (unsigned int) {
    return false;
  } catch (std::exception const& error) {
    *threw = error.what();
  }
  return false;
}

std::string HiddenFileIn(std::string const& folder) {
  for (auto const& entry : fs::directory_iterator(folder)) {
    std::string const name = entry.path().filename();
    if (name.find(".quillmere-") != std::string::npos) return name;
  }
  return "";
}

class SystemCallSweep : public testing::Test {
 protected:
  SystemCallSweep() {
    UserData();
    signal(SIGXFSZ, SIG_IGN);
  }

  bool HasTwoVolumes() const {
    struct stat here;
    struct stat there;
    return stat(UserData().c_str(), &here) == 0 && stat("/dev/shm", &there) == 0 &&
           here.st_dev != there.st_dev;
  }

  // One run; what is wrong after it.
  std::string Try(Operation const& operation, CallFault const& fault, CallTrace* trace) {
    TemporaryFolder const folder;
    TemporaryFolder const far("/dev/shm");
    Place place = {folder.Path(), far.Path(), UserData(), false, fault, {}};
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
    bool const mustSucceed =
        trace->failed == 0 || (fault.error == EINTR && operation.retries == Retries::Yes);
    if (mustSucceed && !place.succeeded) return "failed, and need not";
    std::string harm = operation.harm(place);
    if (!harm.empty()) return harm;
    if (place.Contents("bystander") != kOld) return "another file is changed";
    // Nothing can be taken back where the system refuses to delete.
    if (trace->failedToDelete) return "";
    for (std::string const& where : {place.root, place.far}) {
      std::string const hidden = HiddenFileIn(where);
      if (!hidden.empty()) return hidden + " is left";
    }
    if (place.succeeded) return "";
    // What failed works once the fault is gone.
    place.fault = {};
    place.trace = {};
    place.succeeded = RunOnce(operation, place, &threw);
    return place.succeeded ? operation.harm(place) : "fails for good";
  }
};

TEST_F(SystemCallSweep, NoFailureHarms) {
  PrintFigures("operation | system calls on files | runs with a failure | harm");
  int allRuns = 0;
  int allHarmed = 0;
  for (Operation const& operation : kOperations) {
    if (!HasTwoVolumes() &&
        std::string(operation.name).find("another volume") != std::string::npos) {
      PrintFigures("%s | | none: no second volume |", operation.name);
      continue;
    }
    CallTrace trace;
    Try(operation, {}, &trace);  // makes what is made once a process, and stays open
    if (!trace.isPossible) GTEST_SKIP() << "the kernel does not let system calls be watched";
    ASSERT_EQ(Try(operation, {}, &trace), "") << operation.name;
    int const calls = trace.calls;
    int runs = 0;
    int harmed = 0;
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
          ADD_FAILURE() << operation.name << ", " << NameOf(error) << " at call " << nth << " ("
                        << trace.lastFailed << (isLasting ? " and on): " : "): ") << harm;
        }
      }
    }
    PrintFigures("%s | %d | %d | %d", operation.name, calls, runs, harmed);
    allRuns += runs;
    allHarmed += harmed;
  }
  PrintFigures("all | | %d | %d", allRuns, allHarmed);
}

}  // namespace
