// A process that copies, moves or logs without a pause is killed at random moments. What it had
// been told was done must be there, and nothing may be there in half.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <new>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "QuillmereLib/QuillmereLib.h"
#include "tests/reliability/Sweeps.h"
#include "tests/support/Files.h"

namespace {

// What the child tells of itself, in memory that both processes share.
struct Progress {
  std::atomic<bool> isReady{false};
  std::atomic<int> begun = {};
  std::atomic<int> done[2] = {};
};

// Lets a child do `work`, which never ends, and kills it up to `longest` after it was ready.
template <class Work>
Progress const& KillAtWork(std::chrono::microseconds longest, Work const& work) {
  static std::mt19937 random(20261125);
  static void* const memory =
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto* const progress = new (memory) Progress;
  pid_t const child = fork();
  if (child == 0) {
    try {
      work(*progress);
    } catch (...) {
    }
    _exit(1);
  }
  while (!progress->isReady && waitpid(child, nullptr, WNOHANG) == 0) continue;
  auto const delay = std::uniform_int_distribution<long>(0, longest.count())(random);
  std::this_thread::sleep_for(std::chrono::microseconds(delay));
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the child gave up";
  return *progress;
}

struct Figures {
  int done = 0;   // before the kills
  long left = 0;  // by them, of what was not
};

// Each attempt adds to the figures and tells what the kill has harmed, if anything.
template <class Attempt>
void Sweep(char const* name, Attempt const& attempt) {
  int const kills = IsFull() ? 1000 : 50;
  int damaged = 0;
  Figures figures;
  for (int kill = 0; kill < kills; ++kill) {
    std::string const harm = attempt(&figures);
    if (harm.empty()) continue;
    ++damaged;
    ADD_FAILURE() << name << ", kill " << kill << ": " << harm;
  }
  PrintFigures("%s | %d | %d | %d | %ld", name, kills, figures.done, damaged, figures.left);
}

// Each source is of one letter throughout, and of a length of its own.
std::string Source(int number) {
  return std::string(700000 + static_cast<std::size_t>(number % 7) * 50001,
                     static_cast<char>('a' + number % 26));
}

// The whole lines of a file, each with its return. Counts one whose end is missing.
std::vector<std::string> LinesOf(std::string const& path, long* torn) {
  std::istringstream file(ReadFile(path));
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line) && !file.eof();) lines.push_back(line);
  std::string const text = file.str();
  *torn += !text.empty() && text.back() != '\n';
  return lines;
}

bool EndsWith(std::string const& text, std::string const& end) {
  return text.find(end, text.size() - std::min(text.size(), end.size())) != text.npos;
}

// "thread number ....", so that a line tells whether it is whole.
std::string Message(int thread, int number) {
  std::string const length(static_cast<std::size_t>(number * 37 % 5000), '.');
  return std::to_string(thread) + " " + std::to_string(number) + " " + length;
}

}  // namespace

// Kills while sources, one after the other, go over the target that the one before has left.
TEST(KillSweep, TransfersAreWholeOrNotAtAll) {
  PrintFigures("operation | kills | done before them | harm | hidden files left");
  struct {
    char const* name;
    bool isMove, isFar;
    CopyMeans means = {};
  } const cases[] = {
      {"copy over an old file", false, false},
      {"copy, by a hidden name", false, false, {true, true, true, false, true}},
      {"copy, with nothing to help", false, false, {false, false, false, false, false}},
      {"move over an old file", true, false},
      {"move to another volume", true, true}};
  for (auto const& each : cases) {
    Sweep(each.name, [&each](Figures* figures) -> std::string {
      TemporaryFolder const here, far("/dev/shm");
      std::string const folder = (each.isFar ? far : here).Path(), path = folder + "/target";
      auto const source = [&](int number) { return here.Path() + "/" + std::to_string(number); };
      FileTask task = {"", folder, "target", true, each.isMove, each.means};
      WriteFile(path, Source(0));
      auto const& [isReady, last, done] =
          KillAtWork(std::chrono::milliseconds(6), [&](Progress& progress) {
            for (int number = 1;; ++number) {
              task.source = source(number);
              WriteFile(task.source, Source(number));
              progress.begun = number;
              progress.isReady = true;
              if (task.means.unnamedFiles) {
                Transfer(task.source, path, task.isMove, true);
              } else {
                Transfer(task);
              }
              progress.done[0] = number;
            }
          });
      figures->done += done[0];
      figures->left += CountHidden(folder);
      std::string const target = ReadFile(path);
      bool const isNew = target == Source(last);
      bool const isWhole = isNew || (done[0] < last && target == Source(last - 1));
      bool const hasSource = ReadFile(source(last)) == Source(last);
      if (!isWhole) return "target of " + std::to_string(target.size()) + " bytes";
      return hasSource || (each.isMove && isNew) ? "" : "the source is not whole";
    });
  }
}

TEST(KillSweep, LinesAreThereOnceWriteReturned) {
  PrintFigures("operation | kills | done before them | harm | unfinished at the end");
  Sweep("log lines, two threads", [](Figures* figures) -> std::string {
    TemporaryFolder const folder;
    // Not far from its end, so that the log turns to the next file under way.
    WriteFile(folder.Path() + "/l0.log", std::string(900000, '.') + "\r\n");
    auto const start = [&] { CULog::InitializeWithName(Make(folder.Path()), Make("l"), 3); };
    auto const& [isReady, begun, done] =
        KillAtWork(std::chrono::milliseconds(8), [&](Progress& progress) {
          start();
          auto const write = [&progress](int thread) {
            // No more than the ring of files holds.
            for (int number = 0; number < 1500; ++number) {
              CULog::Write(1, "%s", Message(thread, number).c_str());
              progress.done[thread] = number + 1;
            }
            pause();
          };
          progress.isReady = true;
          std::thread const second(write, 1);
          write(0);
        });
    figures->done += done[0] + done[1];
    // Another process goes on with the log.
    start();
    CULog::Write(1, "next");
    CULog::Terminate();
    int next[2] = {0, 0};
    bool isNextThere = false;
    for (int file = 0; file < kLogFileCount; ++file) {
      std::string const path = folder.Path() + "/l" + std::to_string(file) + ".log";
      for (std::string const& line : LinesOf(path, &figures->left)) {
        std::string const text = line.substr(std::min<std::size_t>(30, line.size()));
        // A line of which the kill left a part has the next one right behind it.
        bool const isNext = EndsWith(text, "next\r");
        isNextThere = isNextThere || isNext;
        figures->left += isNext && text != "next\r";
        for (int thread : {0, 1}) next[thread] += text == Message(thread, next[thread]) + "\r";
      }
    }
    if (!isNextThere) return "no next line";
    for (int thread : {0, 1}) {
      if (next[thread] < done[thread]) return "lines are lost";
    }
    return "";
  });
}

TEST(KillSweep, RowsAreThereOnceFlushReturned) {
  Sweep("flushed rows", [](Figures* figures) -> std::string {
    TemporaryFolder const folder;
    setenv("XDG_DATA_HOME", folder.Path().c_str(), 1);
    auto const& [isReady, begun, done] =
        KillAtWork(std::chrono::milliseconds(8), [&](Progress& progress) {
          CUPerformanceLogger logger("1", true);
          progress.isReady = true;
          for (int number = 0, portion = 1;; portion = portion * 5 % 1009) {
            for (int end = number + portion; number < end; ++number) {
              std::string const path = "/" + std::to_string(number);
              logger.StartLog(LoggerType_Export, path, ExportLogData());
              logger.EndLog(LoggerType_Export, path);
            }
            logger.Flush(LoggerType_Export);
            progress.done[0] = number;
          }
        });
    figures->done += done[0];
    std::string const file = folder.Path() + "/Tavik_Inc_IC/Quillmere/QMR_Export.csv";
    int rows = 0;
    for (std::string const& line : LinesOf(file, &figures->left)) {
      std::string const path = "/" + std::to_string(rows);
      rows += line[0] == '"' &&
              EndsWith(line, "\",\"0.000\",\"" + path + "\",\"1\",\"\",\"\",\"\",\"\"\r");
    }
    return rows >= done[0] ? "" : "rows are lost";
  });
}
