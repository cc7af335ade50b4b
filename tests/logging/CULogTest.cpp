#include <SystemReport.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <regex>
#include <sstream>
#include <thread>
#include <tuple>
#include <vector>

#include "QuillmereLib/logging/CULog.h"
#include "QuillmereLib/values/CUDateTime.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Threads.h"
#include "tests/support/ThrownCode.h"
#include "tests/support/TimeZoneVariable.h"

namespace {

namespace fs = std::filesystem;

// Before the library's own static objects, as far as the order of linking decides.
bool const g_wasOffAtFirst = (CULog::Write(0, "early"), CULog::GetInstance() == nullptr);

std::string FileOf(std::string const& folder, int index) {
  return folder + "/run" + std::to_string(index) + ".log";
}

// A log that runs for one test.
struct Log {
  explicit Log(unsigned int level = 3, std::string const& folder = "")
      : Path(folder.empty() ? Own.Path() : folder) {
    CULog::InitializeWithName(Make(Path), Make("run"), level);
  }
  ~Log() { CULog::Terminate(); }

  std::string File(int index) const { return FileOf(Path, index); }

  TemporaryFolder Own;
  std::string const Path;
};

// The messages in a file of lines at level 1; a line that is not whole is told as it is.
std::vector<std::string> Messages(std::string const& path) {
  static std::regex const head(R"(\[\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\]\t\[ERROR\]\t)");
  std::istringstream file(ReadFile(path));
  std::vector<std::string> messages;
  for (std::string line; std::getline(file, line);) {
    bool const isWhole = !file.eof() && line.size() > 30 && line.back() == '\r' &&
                         std::regex_match(line.substr(0, 30), head);
    messages.push_back(isWhole ? line.substr(30, line.size() - 31) : "broken: " + line);
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
  std::string big;
  while (big.size() < 5000000) big += "0123\r\n%s\xF0\x9F\x8E\xAC\xC3\xA9\t";
  for (std::string const& message : {std::string(), std::string("a\nb\r\nc"), big}) {
    Log const log(2);
    CUSharedPtr<CUDateTime> const before = CUDateTime::Create();
    CULog::Write(1, "%s%c%d", message.c_str(), '%', -7);
    std::string const text = ReadFile(log.File(message.size() > 1000000 ? 1 : 0));
    ASSERT_EQ(text.substr(21), "\t[ERROR]\t" + message + "%-7\r\n");
    EXPECT_GE(text.substr(1, 19), Utf8(CULog::GetLogDateTimeString(before)));
    EXPECT_LE(text.substr(1, 19), Utf8(CULog::GetLogDateTimeString(CUDateTime::Create())));
  }
}

TEST(CULog, WritesUpToItsLevelAndNamesEach) {
  char const* const lines[] = {"DEBUG 0;", "ERROR 1;", "WARNING 2;", "INFO 3;", "DEBUG 4;"};
  for (unsigned int const limit : {0u, 2u, 3u, ~0u}) {
    Log const log(limit);
    std::string wanted;
    for (unsigned int level = 0; level < 5; ++level) {
      CULog::Write(level, "%d", level);
      CULog::Write(level, Make("%d"), level);
      if (level <= limit) wanted += std::string(lines[level]) + lines[level];
    }
    static std::regex const line(R"(.*\t\[(\w+)\]\t(.*)\r\n)");
    // What has no text is lost.
    for (char const* const format : {"\xFF", "%s"}) CULog::Write(1, format, "\xC3");
    for (auto const& text : {Make("\xFF"), CUSharedPtr<CUStringMac>()}) CULog::Write(1, text);
    EXPECT_EQ(std::regex_replace(ReadFile(log.File(0)), line, "$1 $2;"), wanted) << limit;
  }
}

// The states of the ten files: "." missing, "d" a directory, "l" a link to nothing, a digit a file
// of that age rank; then the number that goes on.
TEST(CULog, GoesOnInTheFileThatTheRingTells) {
  char const* const cases[][2] = {{"..........", "0"}, {"121.......", "2"}, {".999999999", "0"},
                                  {"1112111211", "3"}, {"9876543210", "0"}, {"11d9999999", "1"},
                                  {"d999999999", "0"}, {"1119l99999", "3"}, {"1111111118", "9"}};
  for (auto const& [files, chosen] : cases) {
    TemporaryFolder const folder;
    time_t const now = time(nullptr);
    for (int i = 0; i < 10; ++i) {
      std::string const path = FileOf(folder.Path(), i);
      if (files[i] == 'd') fs::create_directory(path);
      if (files[i] == 'l') fs::create_symlink("nothing", path);
      // The ranks from 8 lie in the future.
      if (std::isdigit(files[i])) MakeFile(path, 5, now + (files[i] - '7') * 100000);
    }
    Log const log(3, folder.Path());
    if (files[0] == 'd') fs::remove(log.File(0));
    CULog::Write(1, "here");
    EXPECT_NE(ReadFile(FileOf(folder.Path(), std::atoi(chosen))).find("here"), std::string::npos)
        << files;
  }
}

TEST(CULog, FindsRoomByTheGreatestSizeOfALine) {
  EXPECT_EQ(CULog::GetStringByteSize(Make("a\U0001F3AC")), 12u);
  // How full the present file is, the size of the line, and the file that it goes to.
  std::tuple<std::size_t, unsigned int, int> const cases[] = {
      {999967, 33, 9}, {999968, 33, 0}, {0, 1000001, 0}, {1000, ~0u, 0}};
  for (auto const& [present, bytes, file] : cases) {
    TemporaryFolder const folder;
    for (int i = 0; i < 10; ++i) MakeFile(FileOf(folder.Path(), i), i < 9 ? 7 : present, 1000 + i);
    Log const log(3, folder.Path());
    EXPECT_EQ(Utf8(CULog::GetInstance()->GetWriteableLogPath(bytes)), log.File(file)) << present;
    EXPECT_EQ(fs::exists(log.File(0)), file != 0) << present;
  }
  // A number that could not be written is tried again, and not emptied once more.
  Log const log;
  WriteFile(log.File(0), std::string(999999, 'x'));
  fs::create_directory(log.File(1));
  CULog::Write(1, "lost");
  fs::remove(log.File(1));
  WriteFile(log.File(1), "kept\r\n");
  CULog::Write(1, "next");
  EXPECT_EQ(Messages(log.File(1)).size(), 2u);
}

// Processes that share a log know nothing of each other. Within a file every line of both stays; at
// the turn to the next one the later process wipes what the earlier has begun there, and only that.
TEST(CULog, KeepsLinesWholeAmongThreadsAndProcesses) {
  for (int const count : {60, 500}) {
    Log const log;
    std::string const text(count == 60 ? 5 : 1000, '.');
    pid_t const child = fork();
    OnThreads(8, [&](int thread) {
      int const sender = thread + (child == 0 ? 8 : 0);
      for (int i = 0; i < count; ++i) CULog::Write(1, "%d %d %s", sender, i, text.c_str());
    });
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    int written = 0;
    for (int file = 0; fs::exists(log.File(file)); ++file) {
      // Those of each sender are in order.
      std::map<int, int> next;
      for (std::string const& message : Messages(log.File(file))) {
        int sender = 0, number = 0, end = 0;
        std::sscanf(message.c_str(), "%d %d %n", &sender, &number, &end);
        EXPECT_TRUE(message.substr(static_cast<std::size_t>(end)) == text) << message;
        EXPECT_GE(number, next[sender]) << message;
        next[sender] = number + 1;
        ++written;
      }
    }
    EXPECT_GE(written, count == 60 ? 16 * count : 8 * count);
  }
}

TEST(CULog, LeavesNoTraceOfALineThatTheDiskRefused) {
  EXPECT_EQ(InChild([] {
              signal(SIGXFSZ, SIG_IGN);
              rlimit const limit = {1 << 16, 1 << 16};
              setrlimit(RLIMIT_FSIZE, &limit);
              Log const log;
              std::string text;
              for (std::string const& line :
                   {std::string("first"), std::string(200000, '.'), std::string("third")}) {
                CULog::Write(1, Make(line));
              }
              for (std::string const& message : Messages(log.File(0))) text += message + ' ';
              return text;
            }),
            "first third ");
}

TEST(CULog, IsStartedOnce) {
  EXPECT_TRUE(g_wasOffAtFirst);
  TemporaryFolder const folder;
  std::string const deep = folder.Path() + "/a/b", blocked = folder.Path() + "/file/x";
  CULog::InitializeWithName(nullptr, Make("run"), 3);
  CULog::InitializeWithName(Make(deep), nullptr, 3);
  EXPECT_EQ(CULog::GetInstance(), nullptr);
  CUSharedPtr<CULog> kept;
  {
    Log const log(3, deep);
    kept = CULog::GetInstance();
    CULog::InitializeWithName(Make(deep), Make("other"), 0);
    EXPECT_EQ(CULog::GetInstance(), kept);
    CULog::Write(1, "one");
  }
  CULog::Write(1, "nobody");
  kept->WriteLog(1, Make("in flight"));
  EXPECT_EQ(Messages(FileOf(deep, 0)), (std::vector<std::string>{"one", "in flight"}));

  // A folder that cannot be made is told; the log stays, and writes once the folder is there.
  WriteFile(folder.Path() + "/file", "");
  EXPECT_NE(ThrownCode([&] { Log const log(3, blocked); }), 0u);
  CULog::Write(1, "lost");
  fs::remove(folder.Path() + "/file");
  fs::create_directories(blocked);
  CULog::Write(1, "found");
  CULog::Terminate();
  EXPECT_EQ(Messages(FileOf(blocked, 0)), std::vector<std::string>{"found"});
}

TEST(CULog, SurvivesTheEndOfAProcessThatStillWrites) {
  Log const log;
  EXPECT_EQ(InChild([&]() -> std::string {
              auto const write = [] {
                for (;;) CULog::Write(1, "still here");
              };
              for (int i = 0; i < 4; ++i) std::thread(write).detach();
              while (CULog::GetLogFileSize(Make(log.File(0))) < 5000) std::this_thread::yield();
              std::exit(0);
            }),
            "");
  std::vector<std::string> const messages = Messages(log.File(0));
  for (std::size_t i = 0; i + 1 < messages.size(); ++i) ASSERT_EQ(messages[i], "still here");
}

TEST(CULog, StartsAReportOnTheMachine) {
  Log const log;
  CULog::GetInstance()->WriteSystemInfo(Make("the system.txt"));
  std::string const path = log.Path + "/the system.txt";
  for (int i = 0; i < 600 && ReadFile(path).find("MemTotal:") == std::string::npos; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_NE(ReadFile(path).find("MemTotal:"), std::string::npos);
  // One that does not fit starts nothing, not even what would be left without the sign at its end.
  std::string const start = log.Path + "/cut\"; : \"";
  std::size_t const frame =
      start.size() + std::strlen(SystemReportTool()) + std::strlen(" > \"\" &");
  for (std::size_t const size : {2048u, 2047u}) {
    EXPECT_FALSE(fs::exists(log.Path + "/cut"));
    z_WriteSystemInfo(Make(start + std::string(size - frame, '/')));
  }
  EXPECT_TRUE(fs::exists(log.Path + "/cut"));
}
