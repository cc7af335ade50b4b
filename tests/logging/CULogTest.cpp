#include <SystemReport.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <thread>
#include <vector>

#include "QuillmereLib/logging/CULog.h"
#include "QuillmereLib/values/CUDateTime.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/Mounts.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Threads.h"
#include "tests/support/ThrownCode.h"
#include "tests/support/TimeZoneVariable.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kHeadOfError = 30;  // "[2026/11/14 23:41:07]\t[ERROR]\t"

// Before the library's own static objects, as far as the order of linking decides.
bool const g_wasOffAtFirst = (CULog::Write(0, "early"), CULog::GetInstance() == nullptr);

// A log that runs for one test.
class Log {
 public:
  explicit Log(unsigned int level = 3, std::string const& folder = "") {
    m_path = folder.empty() ? m_folder.Path() : folder;
    CULog::InitializeWithName(Make(m_path), Make("run"), level);
  }
  ~Log() { CULog::Terminate(); }

  std::string File(int index) const { return m_path + "/run" + std::to_string(index) + ".log"; }

 private:
  TemporaryFolder m_folder;
  std::string m_path;
};

// The messages in a file of lines at level 1; a line that is not whole is told as it is.
std::vector<std::string> Messages(std::string const& path) {
  static std::regex const head(R"(\[\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\]\t\[ERROR\]\t)");
  std::vector<std::string> messages;
  std::string const text = ReadFile(path);
  for (std::size_t at = 0, end = 0; at < text.size(); at = end) {
    end = text.find("\r\n", at);
    end = end == std::string::npos ? text.size() : end + 2;
    std::string const line = text.substr(at, end - at);
    bool const isWhole = line.size() >= kHeadOfError + 2 && line[line.size() - 1] == '\n' &&
                         std::regex_match(line.substr(0, kHeadOfError), head);
    messages.push_back(isWhole ? line.substr(kHeadOfError, line.size() - kHeadOfError - 2)
                               : "broken: " + line);
  }
  return messages;
}

void MakeFile(std::string const& path, std::size_t size, time_t modified) {
  WriteFile(path, std::string(size, 'x'));
  utimbuf const times = {modified, modified};
  utime(path.c_str(), &times);
}

}  // namespace

TEST(CULog, WritesALineByteForByte) {
  TimeZoneVariable const zone("Asia/Tokyo");
  Log const log(2);
  std::string big;
  while (big.size() < 5000000) big += "0123\r\n%s\xF0\x9F\x8E\xAC\xC3\xA9\t";
  for (std::string const& message : {std::string(), std::string("a\nb\r\nc"), big}) {
    CULog::DeleteLogFile(Make(log.File(0)));
    fs::remove(log.File(1));
    CUSharedPtr<CUDateTime> const before = CUDateTime::Create();
    CULog::Write(1, "%s%c%d", message.c_str(), '%', -7);
    CUSharedPtr<CUDateTime> const after = CUDateTime::Create();
    std::string const text = ReadFile(log.File(message.size() > 1000000 ? 1 : 0));
    ASSERT_EQ(text.substr(21), "\t[ERROR]\t" + message + "%-7\r\n");
    EXPECT_GE(text.substr(1, 19), Utf8(CULog::GetLogDateTimeString(before)));
    EXPECT_LE(text.substr(1, 19), Utf8(CULog::GetLogDateTimeString(after)));
  }
  EXPECT_EQ(Utf8(CULog::GetLogDateTimeString(CUDateTime::Create(987, 1, 2, 3, 4, 5))),
            "0987/01/02 03:04:05");
  EXPECT_EQ(CULog::GetLogDateTimeString(nullptr), nullptr);
}

TEST(CULog, WritesUpToItsLevelAndNamesEach) {
  std::string const expected[] = {"DEBUG 0 0 x, ", "ERROR 1 1 x, ", "WARNING 2 2 x, ",
                                  "INFO 3 3 x, ",  "DEBUG 4 4 x, ", "DEBUG -1 -1 x, "};
  for (unsigned int limit : {0u, 2u, 3u, 4u, ~0u}) {
    Log const log(limit);
    for (unsigned int level : {0u, 1u, 2u, 3u, 4u, ~0u}) {
      CULog::Write(level, "%d", level);
      CULog::Write(level, Make("%d"), level);
      CULog::GetInstance()->WriteLog(level, Make("x"));
    }
    std::string wanted;
    for (std::string const& line : expected) {
      if (&line - expected <= std::min(limit, 5u)) wanted += line;
    }
    static std::regex const lines(R"(.*\[(\w+)\]\t(.*)\r\n.*\[\1\]\t(.*)\r\n.*\[\1\]\t(.*)\r\n)");
    EXPECT_EQ(std::regex_replace(ReadFile(log.File(0)), lines, "$1 $2 $3 $4, "), wanted) << limit;
  }
}

TEST(CULog, LosesWhatHasNoText) {
  Log const log;
  CULog::Write(1, "\xFF");
  CULog::Write(1, "%s", "\xC3");
  CULog::Write(1, static_cast<char const*>(nullptr));
  CULog::Write(1, CUSharedPtr<CUStringMac>());
  CULog::Write(1, Make("\xFF"));
  EXPECT_FALSE(fs::exists(log.File(0)));
  EXPECT_EQ(CULog::GetStringByteSize(Make("\xFF")), 0u);
  EXPECT_EQ(CULog::GetStringByteSize(Make("a\xF0\x9F\x8E\xAC")), 12u);
}

// The states of the ten files: "." missing, "d" a directory, "l" a link to nothing, a digit a file
// of that age rank; then the number that goes on.
TEST(CULog, GoesOnInTheFileThatTheRingTells) {
  char const* const cases[][2] = {{"..........", "0"}, {"121.......", "2"}, {".999999999", "0"},
                                  {"1.99999999", "0"}, {"555555555.", "8"}, {"1111111111", "0"},
                                  {"1112111211", "3"}, {"0123456789", "9"}, {"9876543210", "0"},
                                  {"11d9999999", "1"}, {"d999999999", "0"}, {"1119l99999", "3"},
                                  {"1111111118", "9"}};
  for (auto const& [files, chosen] : cases) {
    TemporaryFolder const folder;
    auto const path = [&](int i) { return folder.Path() + "/run" + std::to_string(i) + ".log"; };
    for (int i = 0; i < 10; ++i) {
      // The ranks from 8 lie in the future.
      if (files[i] >= '0' && files[i] <= '9') {
        MakeFile(path(i), 5, time(nullptr) + (files[i] - '7') * 100000);
      }
      if (files[i] == 'd') fs::create_directory(path(i));
      if (files[i] == 'l') fs::create_symlink("nothing", path(i));
    }
    Log const log(3, folder.Path());
    if (files[0] == 'd') fs::remove(path(0));
    CULog::Write(1, "here");
    std::string found;
    for (int i = 0; i < 10; ++i) {
      if (ReadFile(path(i)).find("here") != std::string::npos) found += std::to_string(i);
    }
    EXPECT_EQ(found, chosen) << files;
  }
}

TEST(CULog, FindsRoomByTheGreatestSizeOfALine) {
  EXPECT_EQ(CULog::GetStringByteSize(Make("0123456789")), 33u);
  struct {
    std::size_t present;
    unsigned int bytes;
    int file;
  } const cases[] = {{999990, 33, 0}, {999967, 33, 9}, {999968, 33, 0},
                     {0, 1000000, 9}, {0, 1000001, 0}, {1000, ~0u, 0}};
  for (auto const& [present, bytes, file] : cases) {
    TemporaryFolder const folder;
    for (int i = 0; i < 10; ++i) {
      MakeFile(folder.Path() + "/run" + std::to_string(i) + ".log", i == 9 ? present : 7, 1000 + i);
    }
    Log const log(3, folder.Path());
    EXPECT_EQ(Utf8(CULog::GetInstance()->GetWriteableLogPath(bytes)), log.File(file)) << present;
    EXPECT_EQ(fs::exists(log.File(0)), file != 0) << present;
    EXPECT_EQ(fs::file_size(log.File(9)), present);
  }
  // A number that could not be written is tried again, and not emptied once more.
  Log const log;
  WriteFile(log.File(0), std::string(999999, 'x'));
  fs::create_directory(log.File(1));
  CULog::Write(1, "lost");
  fs::remove(log.File(1));
  WriteFile(log.File(1), "kept\r\n");
  CULog::Write(1, "next");
  EXPECT_EQ(Messages(log.File(1)).back(), "next");
}

TEST(CULog, AccountsForEveryLineOfTheRing) {
  Log const log;
  std::string const filler(20000, '.');
  int const count = 1200;
  for (int i = 0; i < count; ++i) CULog::Write(1, "%d%s", i, filler.c_str());
  int last = 0;
  for (int i = 0; i < 10; ++i) {
    if (fs::last_write_time(log.File(i)) > fs::last_write_time(log.File(last))) last = i;
  }
  std::vector<int> numbers;
  for (int i = last + 1; i <= last + 10; ++i) {
    for (std::string const& message : Messages(log.File(i % 10))) {
      ASSERT_EQ(message.substr(message.find('.')), filler);
      numbers.push_back(std::stoi(message));
    }
    auto const size = fs::file_size(log.File(i % 10));
    EXPECT_LE(size, kLogFileSizeLimit);
    EXPECT_TRUE(i % 10 == last || size + 3 * 20036 > kLogFileSizeLimit) << size;
  }
  ASSERT_GT(numbers.size(), 420u);
  EXPECT_LT(numbers.size(), 500u) << "the ring must have come round twice";
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    ASSERT_EQ(numbers[i], count - static_cast<int>(numbers.size() - i));
  }
}

TEST(CULog, KeepsLinesWholeAndEachThreadsInOrder) {
  Log const log;
  OnThreads(32, [](int number) {
    CUSharedPtr<CUStringMac> const format = Make("%d %d %s");
    for (int i = 0; i < 60; ++i) CULog::Write(1, format, number, i, "line\xF0\x9F\x8E\xAC");
  });
  int next[32] = {};
  for (std::string const& message : Messages(log.File(0))) {
    int const number = std::atoi(message.c_str());
    ASSERT_TRUE(message == std::to_string(number) + ' ' + std::to_string(next[number]++) +
                               " line\xF0\x9F\x8E\xAC")
        << message;
  }
  for (int const written : next) EXPECT_EQ(written, 60);
}

// Processes that share a log know nothing of each other. Within a file every line of both stays; at
// the turn to the next one the later process wipes what the earlier has begun there, and only that.
TEST(CULog, SharesItsFilesWithAnotherProcess) {
  std::string const filler(1000, '.');
  for (int const count : {400, 4000}) {
    Log const log;
    pid_t const child = fork();
    for (int i = 0; i < count; ++i) {
      CULog::Write(1, "%d %d %s", child == 0, i, count == 400 ? "short" : filler.c_str());
    }
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    int written = 0;
    for (int file = 0; fs::exists(log.File(file)); ++file) {
      int last[] = {-1, -1};
      for (std::string const& message : Messages(log.File(file))) {
        int process = 0;
        int number = 0;
        ASSERT_EQ(std::sscanf(message.c_str(), "%d %d ", &process, &number), 2) << message;
        ASSERT_GT(number, last[process]);
        last[process] = number;
        ++written;
      }
    }
    EXPECT_GE(written, count == 400 ? 2 * count : count);
  }
}

TEST(CULog, HasWrittenWhenTheProcessIsKilled) {
  Log const log;
  EXPECT_EQ(InChild([] {
              CULog::Write(1, "last");
              raise(SIGKILL);
              return std::string();
            }),
            " signal 9");
  EXPECT_EQ(Messages(log.File(0)), std::vector<std::string>{"last"});
}

// Each fault loses the line, leaks nothing and leaves the next line alone.
TEST(CULog, LosesOneLineByAFault) {
  Log const log;
  auto const expect = [&](std::string const& fault, auto const& spoil, auto const& heal) {
    CULog::Write(1, "before %s", fault.c_str());
    long const descriptors = OpenDescriptors();
    spoil();
    CULog::Write(1, "lost");
    heal();
    EXPECT_EQ(OpenDescriptors(), descriptors) << fault;
    CULog::Write(1, "after %s", fault.c_str());
    EXPECT_EQ(Messages(log.File(0)).back(), "after " + fault);
    EXPECT_EQ(ReadFile(log.File(0)).find("lost"), std::string::npos) << fault;
  };
  std::string const folder = fs::path(log.File(0)).parent_path();
  expect(
      "folder gone", [&] { fs::remove_all(folder); }, [&] { fs::create_directory(folder); });
  auto const replace = [&] {
    fs::rename(log.File(0), log.File(5));
    fs::create_directory(log.File(0));
  };
  auto const putBack = [&] {
    fs::remove(log.File(0));
    fs::rename(log.File(5), log.File(0));
  };
  expect("a directory", replace, putBack);
  rlimit files = {};
  getrlimit(RLIMIT_NOFILE, &files);
  rlimit const none = {0, files.rlim_max};
  expect(
      "no descriptors", [&] { setrlimit(RLIMIT_NOFILE, &none); },
      [&] { setrlimit(RLIMIT_NOFILE, &files); });
  signal(SIGXFSZ, SIG_IGN);
  rlimit const small = {fs::file_size(log.File(0)) + 9, RLIM_INFINITY};
  rlimit const all = {RLIM_INFINITY, RLIM_INFINITY};
  expect(
      "file limit", [&] { setrlimit(RLIMIT_FSIZE, &small); },
      [&] { setrlimit(RLIMIT_FSIZE, &all); });
  signal(SIGXFSZ, SIG_DFL);
}

TEST(CULog, LeavesNoTraceOfALineThatTheDiskRefused) {
  TemporaryFolder const folder;
  std::string const outcome = InChild([&] {
    if (!OwnMountTable() || !MountMemory(folder.Path(), "size=64k")) return std::string("skip");
    Log const log(3, folder.Path());
    CULog::Write(1, "first");
    std::string const tooLong(200000, '.');
    CULog::Write(1, "%s", tooLong.c_str());
    bool const isReported = !CULog::GetInstance()->WriteFileString(Make(tooLong));
    CULog::Write(1, "third");
    auto const remount = [&](unsigned long flags) {
      mount(nullptr, folder.Path().c_str(), nullptr, MS_REMOUNT | flags, nullptr);
    };
    remount(MS_RDONLY);
    CULog::Write(1, "lost");
    remount(0);
    CULog::Write(1, "fifth");
    std::string text = isReported ? "" : "unreported ";
    for (std::string const& message : Messages(log.File(0))) text += message + ' ';
    return text;
  });
  if (outcome == "skip") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(outcome, "first third fifth ");
}

TEST(CULog, IsStartedOnce) {
  EXPECT_TRUE(g_wasOffAtFirst);
  TemporaryFolder const folder;
  std::string const deep = folder.Path() + "/a/b";
  CULog::InitializeWithName(nullptr, Make("run"), 3);
  CULog::InitializeWithName(Make(deep), nullptr, 3);
  CULog::Write(0, "nobody");
  EXPECT_EQ(CULog::GetInstance(), nullptr);

  CUSharedPtr<CULog> kept;
  {
    Log const log(3, deep);
    kept = CULog::GetInstance();
    CULog::InitializeWithName(Make(deep), Make("other"), 0);
    EXPECT_EQ(CULog::GetInstance(), kept);
    CULog::Write(1, "one");
  }
  EXPECT_EQ(CULog::GetInstance(), nullptr);
  CULog::Write(1, "nobody");
  kept->WriteLog(1, Make("in flight"));
  EXPECT_EQ(Messages(deep + "/run0.log"), (std::vector<std::string>{"one", "in flight"}));
  EXPECT_FALSE(fs::exists(deep + "/other0.log"));

  // A folder that cannot be made is told; the log stays, and writes once the folder is there.
  WriteFile(folder.Path() + "/file", "");
  EXPECT_NE(ThrownCode([&] { Log const log(3, folder.Path() + "/file/x"); }), 0u);
  ASSERT_NE(CULog::GetInstance(), nullptr);
  CULog::Write(1, "lost");
  fs::remove(folder.Path() + "/file");
  fs::create_directories(folder.Path() + "/file/x");
  CULog::Write(1, "found");
  CULog::Terminate();
  EXPECT_EQ(Messages(folder.Path() + "/file/x/run0.log"), std::vector<std::string>{"found"});
}

TEST(CULog, SurvivesTheEndOfAProcessThatStillWrites) {
  TemporaryFolder const folder;
  std::string const outcome = InChild([&] {
    CULog::InitializeWithName(Make(folder.Path()), Make("run"), 3);
    for (int i = 0; i < 4; ++i) {
      std::thread([] {
        for (;;) CULog::Write(1, "%s", "still here");
      }).detach();
    }
    while (CULog::GetLogFileSize(Make(folder.Path() + "/run0.log")) < 5000)
      std::this_thread::yield();
    std::exit(0);
    return std::string();
  });
  EXPECT_EQ(outcome, "");
  std::vector<std::string> const messages = Messages(folder.Path() + "/run0.log");
  for (std::size_t i = 0; i + 1 < messages.size(); ++i) ASSERT_EQ(messages[i], "still here");
}

TEST(CULog, TellsTheDatesOfFilesInLocalTime) {
  TimeZoneVariable const zone("America/New_York");
  TemporaryFolder const folder;
  std::string const path = folder.Path() + "/file";
  MakeFile(path, 1, 1751634307);  // 2025-07-04 13:05:07 in Greenwich
  auto const date = [](std::string const& of, unsigned int type) {
    return Utf8(CULog::GetLogDateTimeString(
        CULog::GetLogFileTime(Make(of), static_cast<_Log_DateTime_Type>(type))));
  };
  EXPECT_EQ(date(path, _Log_DateTime_Modified), "2025/07/04 09:05:07");
  EXPECT_EQ(date(path, 2), "<null>");
  EXPECT_EQ(date(path + "x", _Log_DateTime_Modified), "<null>");
  EXPECT_EQ(CULog::GetLogFileTime(nullptr, _Log_DateTime_Modified), nullptr);
  std::string const created = date(path, _Log_DateTime_Created);  // some file systems know none
  EXPECT_TRUE(created == "<null>" || created > "2026/01/01") << created;
  MakeFile(path, 1, -2082844800);  // the start of 1904: no date
  EXPECT_EQ(date(path, _Log_DateTime_Modified), "<null>");
}

TEST(CULog, StartsAReportOnTheMachine) {
  Log const log;
  std::string const folder = fs::path(log.File(0)).parent_path();
  CULog::GetInstance()->WriteSystemInfo(nullptr);
  CULog::GetInstance()->WriteSystemInfo(Make("the system.txt"));
  std::string const path = folder + "/the system.txt";
  for (int i = 0; i < 600 && ReadFile(path).find("Mounted volumes:") == std::string::npos; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  for (char const* const section : {"Hardware:\n", "System:\n", "Memory:\n", "MemTotal:"}) {
    EXPECT_NE(ReadFile(path).find(section), std::string::npos) << section;
  }

  // One that does not fit starts nothing, not even what would be left without the sign at its end.
  std::string const start = folder + "/cut\"; : \"";
  std::size_t const frame =
      start.size() + std::strlen(SystemReportTool()) + std::strlen(" > \"\" &");
  for (std::size_t const size : {2048u, 2047u}) {
    EXPECT_FALSE(fs::exists(folder + "/cut"));
    z_WriteSystemInfo(Make(start + std::string(size - frame, '/')));
  }
  EXPECT_TRUE(fs::exists(folder + "/cut"));
  z_WriteSystemInfo(nullptr);
  z_WriteSystemInfo(Make("\xFF"));
}
