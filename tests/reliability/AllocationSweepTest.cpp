// Every operation that allocates is run once for each of its allocations, with that one failing.

#include <gtest/gtest.h>
#include <malloc.h>

#include <filesystem>
#include <functional>
#include <set>
#include <vector>

#include "QuillmereLib/QuillmereLib.h"
#include "platform/linux/FileCopy.h"
#include "tests/reliability/Figures.h"
#include "tests/reliability/UserData.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Files.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/XmlDocuments.h"

namespace {

namespace fs = std::filesystem;
using String = CUSharedPtr<CUStringMac>;

struct Operation {
  char const* name;
  // What came out, as text. Null strings, "failed" and error codes are defined failures.
  std::function<std::string()> work;
  std::function<void()> prepare = [] {};
};

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

struct Willing final : CopyObserver {
  bool Continues(UInt64, UInt64) override { return true; }
  bool Approves(UInt64) override { return true; }
};

bool GoOn(unsigned long long, unsigned long long, void*) { return true; }

class EndsAtOnce : public CUThread {
 public:
  void* ThreadFunc() override { return nullptr; }
};

class AllocationSweep : public testing::Test {
 protected:
  AllocationSweep() {
    fs::remove_all(UserData() + "/Trash");
    m_array->AddObject(Make("b"));
    m_array->AddObject(Make("a"));
    m_dictionary->SetObjectForKey(Make("value"), m_key);
    m_document->LoadXml(StreamOf("<a b='1'>x<c/>&amp;<?p d?></a>"));
    WriteFile(At("source"), std::string(5000, 's'));
    fs::create_directories(At("list/of"));
    WriteFile(At("list/file"), "");
  }

  std::string At(std::string const& name) const { return m_folder.Path() + "/" + name; }
  String PathOf(std::string const& name) const { return Make(At(name)); }

  std::string Target() const {
    return fs::exists(At("target")) ? std::to_string(fs::file_size(At("target"))) : "failed";
  }

  std::vector<Operation> StringsAndCollections();
  std::vector<Operation> Values();
  std::vector<Operation> Files();
  std::vector<Operation> DrivesAndLogs();

  // What `operation` comes to, whatever it throws that it may throw.
  static std::string Try(Operation const& operation) {
    try {
      return operation.work();
    } catch (unsigned int code) {
      return "code " + std::to_string(code);
    }
  }

  // The failing runs, or -1 where something is wrong.
  static int Sweep(Operation const& operation, std::string const& expected);

  void SweepAll(std::vector<Operation> const& operations);

  TemporaryFolder const m_folder;
  String const m_key = Make("key");
  String const m_text = Make("/caf\u00e9/b.c");
  CUSharedPtr<CUMutableArray> const m_array = new CUMutableArray;
  CUSharedPtr<CUMutableDictionary> const m_dictionary = new CUMutableDictionary;
  CUSharedPtr<CUXmlDomDocumentNode> const m_document = new CUXmlDomDocumentNode;
};

std::vector<Operation> AllocationSweep::StringsAndCollections() {
  return {
      {"string, of bytes", [] { return Utf8(Make("caf\u00e9")); }},
      {"string, copy and assignment",
       [this] {
         CUStringMac copy(*m_text);
         CUStringMac other;
         other = copy;
         return Utf8(other);
       }},
      {"string, sum and part",
       [this] {
         CUStringMac sum = *m_text + *m_key;
         return Outcome(CUResult_Success, sum) + Utf8(m_text->SubString(1, 3));
       }},
      {"string, format",
       [this] { return Utf8(CUStringMac::CreateWithFormat(m_key, "\u00e9", 1)); }},
      {"string, search and comparison",
       [this] {
         _CURange const found = m_text->Find(m_key, CUStringComparison_IgnoreCase);
         return std::to_string(found.location) + std::to_string(*m_text < *m_key);
       }},
      {"path, its parts",
       [this] {
         CUStringMac parts[6];
         std::string text = Outcome(m_text->PathAppend(*m_key, parts[0]), parts[0]);
         text += Outcome(m_text->PathRemoveLastComponent(parts[1]), parts[1]);
         text += Outcome(m_text->PathGetFileName(parts[2]), parts[2]);
         text += Outcome(m_text->PathGetFileNameNoExtension(parts[3]), parts[3]);
         text += Outcome(m_text->PathGetExtension(parts[4]), parts[4]);
         return text + Outcome(m_text->PathGetLastComponent(parts[5]), parts[5]);
       }},
      {"path, components",
       [this] {
         CUSharedPtr<CUArray> parts = new CUArray;
         return CUFailed(m_text->PathComponents(&parts)) ? "failed" : Utf8(parts->Description());
       }},
      {"array, growing and sorting",
       [this] {
         CUSharedPtr<CUMutableArray> const array = new CUMutableArray(m_array);
         array->AddObject(m_key);
         array->InsertObjectAtIndex(m_text, 1);
         array->AddObjectsFromArray(m_array);
         auto const sorted = array->SortedArrayUsingDescriptor(new CUSortDescriptor);
         return std::to_string(array->Count()) + std::to_string(sorted->Count());
       }},
      {"array, description", [this] { return Utf8(m_array->Description()); }},
      {"dictionary",
       [this] {
         CUSharedPtr<CUMutableDictionary> const copy = new CUMutableDictionary(m_dictionary);
         copy->SetObjectForKey(m_array, m_text);
         return Utf8(copy->AllKeys()->Description()) + Utf8(copy->Description());
       }},
  };
}

std::vector<Operation> AllocationSweep::Values() {
  return {
      {"vector",
       [] {
         auto const numbers = CreateCUVectorSInt32();
         for (int i = 0; i < 9; ++i) numbers->push_back(i);
         return Utf8(numbers->Description());
       }},
      {"index set",
       [] {
         auto const indexes = CUMutableIndexSet::Create();
         for (int i = 0; i < 9; ++i) indexes->AddIndex(i);
         return std::to_string(indexes->LastIndex());
       }},
      {"queue",
       [this] {
         CUSynchronizedQueue queue;
         queue.Enqueue(m_key);
         return Utf8(queue.Dequeue());
       }},
      {"event and thread",
       [] {
         CUAutoResetEvent event(true);
         EndsAtOnce thread;
         if (!event.WaitOne() || thread.Start(nullptr) != 0) return std::string("failed");
         thread.Join();
         return std::string("joined");
       }},
      {"date",
       [] {
         auto const start = CUDateTime::Create(2026, 11, 25, 12, 0, 0);
         auto const date = start == nullptr ? start : start->AddDays(1);
         if (date == nullptr) return std::string("failed");
         return Utf8(date->GetString(true)) + Utf8(date->Description());
       }},
      {"UUID and identifier",
       [] {
         CUUUID const random;
         CUSharedPtr<CUUUID> const uuid = CUUUID::Create(random);
         if (uuid == nullptr) return "failed";
         std::string const text = Utf8(uuid->Description());
         auto const generator = CUIdentifierGenerator::SharedInstance();
         return text.size() > 36 && generator != nullptr ? "made" : "failed";
       }},
      {"XML, loading", [] { return Loaded("<?p x?><a b='1' c='2'>t<d/>&amp;<?q?></a>"); }},
      {"XML, description", [this] { return Utf8(m_document->Description()); }},
      {"XML, writing", [this] { return Written(*m_document); }},
  };
}

std::vector<Operation> AllocationSweep::Files() {
  auto const addTarget = [this] { WriteFile(At("target"), "old"); };
  return {
      {"stream, writing and reading",
       [this] {
         CUFileStream stream(PathOf("target").Get(), CUStream_FileMode_Create,
                             CUStream_FileAccess_ReadWrite, false);
         return WriteText(stream, "abc", 0) == 3 ? ReadText(stream, 3, 0) : "failed";
       }},
      {"stream in memory",
       [] {
         auto const bytes = StreamOf("abc");
         _CURange range = {0, 3};
         auto const made = CUMemoryStream::CreateMemoryStreamPtr(bytes, range);
         return made == nullptr ? "failed" : ReadText(*made, 3, 0);
       }},
      {"file, facts and renaming",
       [this] {
         CUFileInfo file(PathOf("target"));
         if (file.Length() != 3) return std::string("failed");
         file.Rename(Make("renamed"));
         return fs::exists(At("renamed")) ? Utf8(file.GetFullName()) : "failed";
       },
       [this, addTarget] {
         fs::remove(At("renamed"));
         addTarget();
       }},
      {"file, deletion",
       [this] {
         CUFile::Delete(PathOf("target"));
         return fs::exists(At("target")) ? "failed" : "gone";
       },
       addTarget},
      {"file, copy by the public operation",
       [this] {
         _CopyProgress_Info info = {GoOn, nullptr, nullptr};
         auto const result =
             CUFile::CopyWithProgress(PathOf("source"), PathOf("target"), &info, true);
         return result == CUResult_Success ? Target() : "failed";
       },
       addTarget},
      {"file, the copying itself",
       [this] {
         FileTask task = {At("source"), m_folder.Path(), "target",
                          true,         false,           {false, false, false, false, true}};
         Willing willing;
         return CopyFile(task, &willing) == 0 ? Target() : "failed";
       },
       addTarget},
      {"directory, making and deleting",
       [this] {
         CUDirectory::CreateDirectory(PathOf("tree/a/b"));
         if (!fs::exists(At("tree/a/b"))) return "failed";
         CUDirectory::Delete(PathOf("tree"), true);
         return fs::exists(At("tree")) ? "failed" : "gone";
       },
       [this] { fs::remove_all(At("tree")); }},
      {"directory, listing",
       [this] {
         CUDirectoryInfo directory(PathOf("list"));
         auto const files = directory.GetFiles();
         auto const folders = directory.GetDirectories();
         // An entry for which there is no memory is passed over.
         return files->Count() + folders->Count() < 2 ? "failed" : "listed";
       }},
      {"directory, trash",
       [this] {
         CUDirectory::Recycle(PathOf("old"));
         return fs::exists(At("old")) ? "failed" : "gone";
       },
       [this] { fs::create_directory(At("old")); }},
  };
}

std::vector<Operation> AllocationSweep::DrivesAndLogs() {
  return {
      {"drive",
       [this] {
         CUDriveInfo drive(PathOf("list"));
         return Utf8(drive.GetName()) + Utf8(drive.GetDisplayString());
       }},
      {"log, start and line",
       [this] {
         CULog::InitializeWithName(Make(m_folder.Path()), Make("target"), 3);
         CULog::Write(1, "%s", "text");
         CULog::Terminate();
         std::string const file = At("target0.log");
         return fs::exists(file) && fs::file_size(file) == 36 ? "written" : "failed";
       },
       [this] {
         CULog::Terminate();
         fs::remove(At("target0.log"));
       }},
      {"rows, a flush",
       [] {
         CUPerformanceLogger logger("1", true);
         logger.StartLog(LoggerType_Export, "/a", ExportLogData());
         logger.EndLog(LoggerType_Export, "/a");
         logger.Flush(LoggerType_Export);
         std::string const file = UserData() + "/Tavik_Inc_IC/Quillmere/QMR_Export.csv";
         return fs::exists(file) && fs::file_size(file) > 200 ? "written" : "failed";
       },
       [] { fs::remove_all(UserData() + "/Tavik_Inc_IC"); }},
  };
}

int AllocationSweep::Sweep(Operation const& operation, std::string const& expected) {
  operation.prepare();
  long const descriptors = OpenDescriptors();
  std::string outcome;
  std::string wrong;
  int nth = 0;
  int const failures = FailEachAllocation(
      [&] {
        ++nth;
        outcome = "code of bad_alloc";
        outcome = Try(operation);
      },
      [&] {
        std::string fault;
        if (outcome != expected && !IsFailure(outcome)) fault = outcome;
        if (OpenDescriptors() != descriptors) fault += " a descriptor is left open";
        operation.prepare();
        std::string const afterwards = Try(operation);
        if (afterwards != expected) fault += " and then " + afterwards;
        operation.prepare();
        if (!fault.empty()) wrong += "\n  allocation " + std::to_string(nth) + ": " + fault;
      });
  EXPECT_EQ(wrong, "") << operation.name;
  return wrong.empty() ? failures : -1;
}

void AllocationSweep::SweepAll(std::vector<Operation> const& operations) {
  PrintFigures("operation | allocations, each failed once | harm");
  for (Operation const& operation : operations) {
    operation.prepare();
    // Twice, as some things are made once a process, and others once a thread.
    for (int i = 0; i < 2; ++i) Try(operation);
    operation.prepare();
    std::string const expected = Try(operation);
    EXPECT_FALSE(IsFailure(expected)) << operation.name << ": " << expected;
    // What a failure leaves behind makes each sweep leave as much.
    int const failures = Sweep(operation, expected);
    std::set<long> growths;
    for (int i = 0; i < 3 && failures > 0; ++i) {
      auto const before = static_cast<long>(mallinfo2().uordblks);
      Sweep(operation, expected);
      growths.insert(static_cast<long>(mallinfo2().uordblks) - before);
    }
    bool const leaks = growths.size() == 1 && *growths.begin() > 0;
    EXPECT_FALSE(leaks) << operation.name << " leaves memory behind";
    EXPECT_GT(failures, 0) << operation.name;
    PrintFigures("%s | %d | %s", operation.name, failures,
                 failures < 0 ? "harmed"
                 : leaks      ? "leak"
                              : "0");
  }
}

TEST_F(AllocationSweep, OfStringsAndCollections) { SweepAll(StringsAndCollections()); }

TEST_F(AllocationSweep, OfValues) { SweepAll(Values()); }

TEST_F(AllocationSweep, OfFiles) { SweepAll(Files()); }

TEST_F(AllocationSweep, OfDrivesAndLogs) { SweepAll(DrivesAndLogs()); }

}  // namespace
