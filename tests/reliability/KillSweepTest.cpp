// A process that copies, moves or logs without a pause is killed at random moments. What it had
// been told was done must be there, and nothing may be there in half.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <new>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "QuillmereLib/QuillmereLib.h"
#include "platform/linux/FileCopy.h"
#include "tests/reliability/Figures.h"
#include "tests/support/Files.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

int Kills() { return IsFull() ? 1000 : 50; }

// What the child tells of itself, in memory that both processes share.
struct Progress {
  std::atomic<bool> isReady{false};
  std::atomic<int> begun[2] = {};
  std::atomic<int> done[2] = {};
};

class KilledChild {
 public:
  KilledChild()
      : m_memory(mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                      -1, 0)),
        m_progress(new (m_memory) Progress) {}
  KilledChild(KilledChild const&) = delete;
  KilledChild& operator=(KilledChild const&) = delete;
  ~KilledChild() { munmap(m_memory, sizeof(Progress)); }

  // Lets a child do `work` over and over, and kills it up to `longest` after it began to.
  template <class Work>
  Progress const& Run(std::mt19937& random, std::chrono::microseconds longest, Work const& work) {
    pid_t const child = fork();
    if (child == 0) {
      try {
        work(*m_progress);
      } catch (...) {
      }
      _exit(1);
    }
    while (!m_progress->isReady && waitpid(child, nullptr, WNOHANG) == 0) continue;
    auto const delay = std::uniform_int_distribution<long>(0, longest.count())(random);
    std::this_thread::sleep_for(std::chrono::microseconds(delay));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the child gave up";
    return *m_progress;
  }

 private:
  void* m_memory;
  Progress* m_progress;
};

struct Willing final : CopyObserver {
  bool Continues(UInt64, UInt64) override { return true; }
  bool Approves(UInt64) override { return true; }
};

bool GoOn(unsigned long long, unsigned long long, void*) { return true; }

// Each source is of one letter throughout, and of a length of its own.
std::string Source(int number) {
  return std::string(700000 + static_cast<std::size_t>(number % 7) * 50001,
                     static_cast<char>('a' + number % 26));
}

int CountHidden(std::string const& folder) {
  return static_cast<int>(std::count_if(
      fs::directory_iterator(folder), fs::directory_iterator(), [](auto const& entry) {
        return entry.path().filename().string().find(".quillmere-") != std::string::npos;
      }));
}

struct Transfers {
  char const* name;
  bool isMove;
  bool isFar;
  CopyMeans means;
};

// By the public operations; where some means are taken away, by what they stand on.
void TransferOnce(Transfers const& transfers, std::string const& from, std::string const& folder) {
  if (!transfers.means.unnamedFiles) {
    Willing willing;
    CopyFile({from, folder, "target", true, transfers.isMove, transfers.means}, &willing);
    return;
  }
  _CopyProgress_Info info = {GoOn, nullptr, nullptr};
  auto const transfer = transfers.isMove ? CUFile::MoveWithProgress : CUFile::CopyWithProgress;
  transfer(Make(from), Make(folder + "/target"), &info, true);
}

// Kills while sources, one after the other, go over the target that the one before has left.
TEST(KillSweep, TransfersAreWholeOrNotAtAll) {
  PrintFigures("operation | kills | done before them | harm | hidden files left");
  std::mt19937 random(20261125);
  for (Transfers const& transfers :
       {Transfers{"copy over an old file", false, false, {}},
        Transfers{"copy, by a hidden name", false, false, {true, true, true, false, true}},
        Transfers{"copy, with nothing to help", false, false, {false, false, false, false, false}},
        Transfers{"move over an old file", true, false, {}},
        Transfers{"move to another volume", true, true, {}}}) {
    int transferred = 0;
    int hidden = 0;
    int damaged = 0;
    for (int kill = 0; kill < Kills(); ++kill) {
      TemporaryFolder const here;
      TemporaryFolder const far("/dev/shm");
      std::string const folder = transfers.isFar ? far.Path() : here.Path();
      auto const source = [&](int number) { return here.Path() + "/" + std::to_string(number); };
      WriteFile(folder + "/target", Source(0));
      KilledChild child;
      auto const& [isReady, begun, done] =
          child.Run(random, std::chrono::milliseconds(6), [&](Progress& progress) {
            for (int number = 1;; ++number) {
              WriteFile(source(number), Source(number));
              progress.begun[0] = number;
              progress.isReady = true;
              TransferOnce(transfers, source(number), folder);
              progress.done[0] = number;
            }
          });
      int const last = begun[0];
      std::string const target = ReadFile(folder + "/target");
      bool const isNew = target == Source(last);
      bool const isWhole = isNew || (done[0] < last && target == Source(last - 1));
      bool const mustHaveSource = !transfers.isMove || !isNew;
      bool const hasSource = fs::exists(source(last)) && ReadFile(source(last)) == Source(last);
      if (!isWhole || (mustHaveSource && !hasSource)) {
        ++damaged;
        ADD_FAILURE() << transfers.name << ", kill " << kill << ": target of " << target.size()
                      << " bytes, source " << (hasSource ? "whole" : "not whole");
      }
      transferred += done[0];
      hidden += CountHidden(folder);
    }
    PrintFigures("%s | %d | %d | %d | %d", transfers.name, Kills(), transferred, damaged, hidden);
  }
}

// The texts between `begin` and the end of each whole line; what else is there counts as torn.
struct Lines {
  std::vector<std::string> texts;
  int torn = 0;
};

Lines LinesOf(std::string const& file, std::size_t head) {
  Lines lines;
  for (std::size_t at = 0; at < file.size();) {
    std::size_t const end = file.find("\r\n", at);
    if (end == std::string::npos) {
      ++lines.torn;
      break;
    }
    lines.texts.push_back(file.substr(std::min(end, at + head), end - std::min(end, at + head)));
    at = end + 2;
  }
  return lines;
}

// "thread number length ....", so that a line tells whether it is whole.
std::string Message(int thread, int number) {
  std::size_t const length = static_cast<std::size_t>(number * 37 % 5000);
  return std::to_string(thread) + " " + std::to_string(number) + " " + std::string(length, '.');
}

TEST(KillSweep, LinesAreThereOnceWriteReturned) {
  PrintFigures("operation | kills | done before them | harm | unfinished at the end");
  std::mt19937 random(20261126);
  int written = 0;
  int torn = 0;
  int damaged = 0;
  for (int kill = 0; kill < Kills(); ++kill) {
    TemporaryFolder const folder;
    // Not far from its end, so that the log turns to the next file under way.
    WriteFile(folder.Path() + "/l0.log", std::string(900000, '.') + "\r\n");
    KilledChild child;
    auto const start = [&] { CULog::InitializeWithName(Make(folder.Path()), Make("l"), 3); };
    auto const& [isReady, begun, done] =
        child.Run(random, std::chrono::milliseconds(8), [&](Progress& progress) {
          start();
          auto const write = [&progress](int thread) {
            for (int number = 0;; ++number) {
              CULog::Write(1, "%s", Message(thread, number).c_str());
              progress.done[thread] = number + 1;
            }
          };
          progress.isReady = true;
          std::thread const second(write, 1);
          write(0);
        });
    // Another process goes on with the log.
    start();
    CULog::Write(1, "next");
    CULog::Terminate();
    int next[2] = {0, 0};
    bool isNextThere = false;
    for (int file = 0; file < kLogFileCount; ++file) {
      Lines const lines =
          LinesOf(ReadFile(folder.Path() + "/l" + std::to_string(file) + ".log"), 30);
      torn += lines.torn;
      for (std::string const& text : lines.texts) {
        // A line of which the kill left a part has the next one right behind it.
        bool const isNext = text.size() >= 4 && text.compare(text.size() - 4, 4, "next") == 0;
        isNextThere = isNextThere || isNext;
        torn += isNext && text != "next";
        for (int thread : {0, 1}) next[thread] += text == Message(thread, next[thread]);
      }
    }
    if (!isNextThere || next[0] < done[0] || next[1] < done[1]) {
      ++damaged;
      ADD_FAILURE() << "kill " << kill << ": " << next[0] << " and " << next[1] << " lines of "
                    << done[0] << " and " << done[1] << (isNextThere ? "" : ", and no next line");
    }
    written += done[0] + done[1];
  }
  PrintFigures("log lines, two threads | %d | %d | %d | %d", Kills(), written, damaged, torn);
}

TEST(KillSweep, RowsAreThereOnceFlushReturned) {
  std::mt19937 random(20261127);
  int flushed = 0;
  int torn = 0;
  int damaged = 0;
  for (int kill = 0; kill < Kills(); ++kill) {
    TemporaryFolder const folder;
    setenv("XDG_DATA_HOME", folder.Path().c_str(), 1);
    auto const put = [](CUPerformanceLogger& logger, int number) {
      std::string const path = "/" + std::to_string(number);
      logger.StartLog(LoggerType_Export, path, ExportLogData());
      logger.EndLog(LoggerType_Export, path);
    };
    KilledChild child;
    auto const& [isReady, begun, done] =
        child.Run(random, std::chrono::milliseconds(8), [&](Progress& progress) {
          CUPerformanceLogger logger("1", true);
          progress.isReady = true;
          for (int number = 0, portion = 1;; portion = portion * 5 % 1009) {
            for (int end = number + portion; number < end; ++number) put(logger, number);
            progress.begun[0] = number;
            logger.Flush(LoggerType_Export);
            progress.done[0] = number;
          }
        });
    std::string const file = folder.Path() + "/Tavik_Inc_IC/Quillmere/QMR_Export.csv";
    auto const rows = [&](int* tornHere) {
      Lines const lines = LinesOf(ReadFile(file), 0);
      *tornHere = lines.torn;
      int count = 0;
      for (std::string const& text : lines.texts) {
        std::string const cells =
            "\",\"0.000\",\"/" + std::to_string(count) + "\",\"1\",\"\",\"\",\"\",\"\"";
        count += text.size() > cells.size() && text[0] == '"' &&
                 text.compare(text.size() - cells.size(), cells.size(), cells) == 0;
      }
      return count;
    };
    int tornHere = 0;
    int const there = rows(&tornHere);
    torn += tornHere;
    if (there < done[0]) {
      ++damaged;
      ADD_FAILURE() << "kill " << kill << ": " << there << " rows of " << done[0];
    }
    flushed += done[0];
  }
  PrintFigures("flushed rows | %d | %d | %d | %d", Kills(), flushed, damaged, torn);
}

}  // namespace
