// Every operation that allocates is run once for each of its allocations, with that one failing.

#include <gtest/gtest.h>
#include <malloc.h>

#include <functional>
#include <set>

#include "QuillmereLib/QuillmereLib.h"
#include "tests/reliability/Sweeps.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Files.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/XmlDocuments.h"

namespace {

namespace fs = std::filesystem;
using String = CUSharedPtr<CUStringMac>;

using Step = std::function<void()>;
// Gives what came out, as text. Null strings, "failed" and error codes are defined failures.
using Work = std::function<std::string()>;

// An empty text stands for one that could not be made.
std::string Outcome(CUResult result, CUStringMac& text) {
  return CUFailed(result) || text.Length() == 0 ? "failed" : Utf8(text);
}

// What a caller may be given instead of what was asked for; "(NULL)" stands for a missing date.
bool IsFailure(std::string const& outcome) {
  for (char const* const mark : {"<null>", "(NULL)", "failed", "code "}) {
    if (outcome.find(mark) != std::string::npos) return true;
  }
  return false;
}

// What the work comes to, whatever it throws that it may throw.
std::string Try(Work const& work) {
  try {
    return work();
  } catch (unsigned int code) {
    return "code " + std::to_string(code);
  }
}

void Sweep(char const* name, Step const& prepare, Work const& work) {
  auto const prepareAndTry = [&] {
    if (prepare) prepare();
    return Try(work);
  };
  // Twice, as some things are made once a process, and others once a thread.
  for (int i = 0; i < 2; ++i) prepareAndTry();
  std::string const expected = prepareAndTry();
  EXPECT_FALSE(IsFailure(expected)) << name << ": " << expected;
  // The failing runs, or -1 where something is wrong.
  auto const sweepOnce = [&] {
    if (prepare) prepare();
    long const descriptors = OpenDescriptors();
    std::string outcome, wrong;
    auto const failingWork = [&] {
      outcome = "code of bad_alloc";
      outcome = Try(work);
    };
    int nth = 0;
    int const failures = FailEachAllocation(failingWork, [&] {
      ++nth;
      std::string fault;
      if (outcome != expected && !IsFailure(outcome)) fault = outcome;
      if (OpenDescriptors() != descriptors) fault += " a descriptor is left open";
      std::string const afterwards = prepareAndTry();
      if (afterwards != expected) fault += " and then " + afterwards;
      if (prepare) prepare();
      if (!fault.empty()) wrong += "\n  allocation " + std::to_string(nth) + ": " + fault;
    });
    EXPECT_EQ(wrong, "") << name;
    return wrong.empty() ? failures : -1;
  };
  // What a failure leaves behind makes each sweep leave as much.
  int const failures = sweepOnce();
  std::set<long> growths;
  for (int i = 0; i < 3 && failures > 0; ++i) {
    auto const before = static_cast<long>(mallinfo2().uordblks);
    sweepOnce();
    growths.insert(static_cast<long>(mallinfo2().uordblks) - before);
  }
  bool const leaks = growths.size() == 1 && *growths.begin() > 0;
  EXPECT_FALSE(leaks) << name << " leaves memory behind";
  EXPECT_GT(failures, 0) << name;
  char const* const harm = failures < 0 ? "harmed" : leaks ? "leak" : "0";
  PrintFigures("%s | %d | %s", name, failures, harm);
}

void Sweep(char const* name, Work const& work) { Sweep(name, Step(), work); }

class AllocationSweep : public testing::Test {
 protected:
  AllocationSweep() {
    fs::remove_all(UserData() + "/Trash");
    m_array->AddObject(Make("b"));
    m_array->AddObject(Make("a"));
    PrintFigures("operation | allocations, each failed once | harm");
  }

  std::string At(std::string const& name) const { return m_folder.Path() + "/" + name; }
  String PathOf(std::string const& name) const { return Make(At(name)); }
  std::string Target() const {
    return fs::exists(At("target")) ? std::to_string(fs::file_size(At("target"))) : "failed";
  }
  std::string GoneAt(std::string const& name) const {
    return fs::exists(At(name)) ? "failed" : "gone";
  }

  TemporaryFolder const m_folder;
  String const m_key = Make("key");
  String const m_text = Make("/caf\u00e9/b.c");
  CUSharedPtr<CUMutableArray> const m_array = new CUMutableArray;
};

}  // namespace

TEST_F(AllocationSweep, OfStringsAndCollections) {
  Sweep("string, of bytes", [] { return Utf8(Make("caf\u00e9")); });
  Sweep("string, copy and assignment", [&] {
    CUStringMac copy(*m_text);
    CUStringMac other;
    other = copy;
    return Utf8(other);
  });
  Sweep("string, sum and part", [&] {
    CUStringMac sum = *m_text + *m_key;
    return Outcome(CUResult_Success, sum) + Utf8(m_text->SubString(1, 3));
  });
  Sweep("string, format", [&] { return Utf8(CUStringMac::CreateWithFormat(m_key, "\u00e9", 1)); });
  Sweep("string, search and comparison", [&] {
    _CURange const found = m_text->Find(m_key, CUStringComparison_IgnoreCase);
    return std::to_string(found.location) + std::to_string(*m_text < *m_key);
  });
  Sweep("path, its parts", [&] {
    CUStringMac parts[6];
    std::string text = Outcome(m_text->PathAppend(*m_key, parts[0]), parts[0]);
    text += Outcome(m_text->PathRemoveLastComponent(parts[1]), parts[1]);
    text += Outcome(m_text->PathGetFileName(parts[2]), parts[2]);
    text += Outcome(m_text->PathGetFileNameNoExtension(parts[3]), parts[3]);
    text += Outcome(m_text->PathGetExtension(parts[4]), parts[4]);
    return text + Outcome(m_text->PathGetLastComponent(parts[5]), parts[5]);
  });
  Sweep("path, components", [&] {
    CUSharedPtr<CUArray> parts = new CUArray;
    return CUFailed(m_text->PathComponents(&parts)) ? "failed" : Utf8(parts->Description());
  });
  Sweep("array, growing and sorting", [&] {
    CUSharedPtr<CUMutableArray> const array = new CUMutableArray(m_array);
    array->AddObject(m_key);
    array->InsertObjectAtIndex(m_text, 1);
    array->AddObjectsFromArray(m_array);
    auto const sorted = array->SortedArrayUsingDescriptor(new CUSortDescriptor);
    return std::to_string(array->Count()) + std::to_string(sorted->Count());
  });
  Sweep("array, description", [&] { return Utf8(m_array->Description()); });
  CUSharedPtr<CUMutableDictionary> const dictionary = new CUMutableDictionary;
  dictionary->SetObjectForKey(Make("value"), m_key);
  Sweep("dictionary", [&] {
    CUSharedPtr<CUMutableDictionary> const copy = new CUMutableDictionary(dictionary);
    copy->SetObjectForKey(m_array, m_text);
    CUSharedPtr<CUMutableDictionary> const empty = new CUMutableDictionary;
    empty->SetObjectForKey(m_array, m_text);
    return Utf8(copy->AllKeys()->Description()) + Utf8(copy->Description()) +
           Utf8(empty->Description());
  });
}

TEST_F(AllocationSweep, OfValues) {
  Sweep("vector", [] {
    auto const numbers = CreateCUVectorSInt32();
    for (int i = 0; i < 9; ++i) numbers->push_back(i);
    return Utf8(numbers->Description());
  });
  Sweep("index set", [] {
    auto const indexes = CUMutableIndexSet::Create();
    for (int i = 0; i < 9; ++i) indexes->AddIndex(i);
    return std::to_string(indexes->LastIndex());
  });
  Sweep("queue", [&] {
    CUSynchronizedQueue queue;
    queue.Enqueue(m_key);
    return Utf8(queue.Dequeue());
  });
  Sweep("event and thread", [] {
    CUAutoResetEvent event(true);
    CUThread thread;
    if (!event.WaitOne() || thread.Start(nullptr) != 0) return "failed";
    thread.Join();
    return "joined";
  });
  Sweep("date", [] {
    auto const start = CUDateTime::Create(2026, 11, 25, 12, 0, 0);
    auto const date = start == nullptr ? start : start->AddDays(1);
    if (date == nullptr) return std::string("failed");
    return Utf8(date->GetString(true)) + Utf8(date->Description());
  });
  Sweep("UUID and identifier", [] {
    CUUUID const random;
    CUSharedPtr<CUUUID> const uuid = CUUUID::Create(random);
    if (uuid == nullptr) return "failed";
    std::string const text = Utf8(uuid->Description());
    auto const generator = CUIdentifierGenerator::SharedInstance();
    return text.size() > 36 && generator != nullptr ? "made" : "failed";
  });
  CUXmlDomDocumentNode document;
  document.LoadXml(StreamOf("<a b='1'>x<c/>&amp;<?p d?></a>"));
  Sweep("XML, loading", [] { return Loaded("<?p x?><a b='1' c='2'>t<d/>&amp;<?q?></a>"); });
  Sweep("XML, description", [&] { return Utf8(document.Description()); });
  Sweep("XML, writing", [&] { return Written(document); });
}

TEST_F(AllocationSweep, OfFiles) {
  WriteFile(At("source"), std::string(5000, 's'));
  auto const addTarget = [this] {
    fs::remove(At("renamed"));
    WriteFile(At("target"), "old");
  };
  Sweep("stream, writing and reading", [&] {
    CUFileStream stream(PathOf("target").Get(), CUStream_FileMode_Create,
                        CUStream_FileAccess_ReadWrite, false);
    return WriteText(stream, "abc", 0) == 3 ? ReadText(stream, 3, 0) : "failed";
  });
  Sweep("stream in memory", [] {
    auto const bytes = StreamOf("abc");
    _CURange range = {0, 3};
    auto const made = CUMemoryStream::CreateMemoryStreamPtr(bytes, range);
    return made == nullptr ? "failed" : ReadText(*made, 3, 0);
  });
  Sweep("file, facts and renaming", addTarget, [&] {
    CUFileInfo file(PathOf("target"));
    if (file.Length() != 3) return std::string("failed");
    file.Rename(Make("renamed"));
    return fs::exists(At("renamed")) ? Utf8(file.GetFullName()) : "failed";
  });
  Sweep("file, deletion", addTarget, [&] {
    CUFile::Delete(PathOf("target"));
    return GoneAt("target");
  });
  Sweep("file, copy by the public operation", addTarget,
        [&] { return Transfer(At("source"), At("target"), false, true) ? Target() : "failed"; });
  Sweep("file, the copying itself", addTarget, [&] {
    CopyMeans const means = {false, false, false, false, true};
    FileTask const task = {At("source"), m_folder.Path(), "target", true, false, means};
    return Transfer(task) ? Target() : "failed";
  });
  auto const removeTree = [&] { fs::remove_all(At("tree")); };
  Sweep("directory, making and deleting", removeTree, [&] {
    CUDirectory::CreateDirectory(PathOf("tree/a/b"));
    if (!fs::exists(At("tree/a/b"))) return std::string("failed");
    CUDirectory::Delete(PathOf("tree"), true);
    return GoneAt("tree");
  });
  fs::create_directories(At("list/of"));
  WriteFile(At("list/file"), "");
  Sweep("directory, listing", [&] {
    CUDirectoryInfo directory(PathOf("list"));
    auto const files = directory.GetFiles();
    auto const folders = directory.GetDirectories();
    // An entry for which there is no memory is passed over.
    return files->Count() + folders->Count() < 2 ? "failed" : "listed";
  });
  auto const addOld = [&] { fs::create_directory(At("old")); };
  Sweep("directory, trash", addOld, [&] {
    CUDirectory::Recycle(PathOf("old"));
    return GoneAt("old");
  });
}

TEST_F(AllocationSweep, OfDrivesAndLogs) {
  fs::create_directories(At("list"));
  Sweep("drive", [&] {
    CUDriveInfo drive(PathOf("list"));
    return Utf8(drive.GetName()) + Utf8(drive.GetDisplayString());
  });
  auto const endLog = [&] {
    CULog::Terminate();
    fs::remove(At("target0.log"));
  };
  Sweep("log, start and line", endLog, [&] {
    CULog::InitializeWithName(Make(m_folder.Path()), Make("target"), 3);
    CULog::Write(1, "%s", "text");
    CULog::Terminate();
    std::string const lines = At("target0.log");
    return fs::exists(lines) && fs::file_size(lines) == 36 ? "written" : "failed";
  });
  auto const removeRows = [] { fs::remove_all(UserData() + "/Tavik_Inc_IC"); };
  Sweep("rows, a flush", removeRows, [&] {
    CUPerformanceLogger logger("1", true);
    logger.StartLog(LoggerType_Export, "/a", ExportLogData());
    logger.EndLog(LoggerType_Export, "/a");
    logger.Flush(LoggerType_Export);
    std::string const rows = UserData() + "/Tavik_Inc_IC/Quillmere/QMR_Export.csv";
    return fs::exists(rows) && fs::file_size(rows) > 200 ? "written" : "failed";
  });
}
