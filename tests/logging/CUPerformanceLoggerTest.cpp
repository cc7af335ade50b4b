#include <Workspace.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <locale>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <tuple>
#include <vector>

#include "QuillmereLib/logging/CUPerformanceLogger.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Threads.h"
#include "tests/support/ThrownCode.h"
#include "tests/support/TimeZoneVariable.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Way into the pending runs, so that a test need not last for hours.
auto& Pending(CUPerformanceLogger& logger);
template <auto Member>
struct Opened {
  friend auto& Pending(CUPerformanceLogger& logger) { return logger.*Member; }
};
template struct Opened<&CUPerformanceLogger::m_pendingLogs>;

using Row = std::vector<std::string>;

constexpr auto kStab = LoggerType_ImageStabilization, kExport = LoggerType_Export;
std::string const kMark = "\xEF\xBB\xBF";
std::string const kCommon =
    "Status,Start DateTime,End DateTime,Process Time,Target Duration,File Path,Version,";
std::string const kStabHead = kCommon + "Detection Mode,Correction Strength\r\n";
std::string const kExportHead = kCommon + "File Format,VR Format,Use DLUS,Processor\r\n";

ImageStabLogData Stab(std::string const& mode = "a") {
  ImageStabLogData data;
  data.detectionMode = mode;
  data.correctionStrength = "b";
  return data;
}

std::string StabRow(std::string const& path, std::string const& mode = "a") {
  return R"("SUCCESS",T,T,P,"0.000",")" + path + R"(","1",")" + mode + "\",\"b\"\r\n";
}

void RunOnce(CUPerformanceLogger& logger, std::string const& path, ImageStabLogData const& data) {
  logger.StartLog(kStab, path, data);
  logger.EndLog(kStab, path);
}

// Holds a life for as long as it lives, and has no cells.
struct HoldingLog : ImageStabLogData {
  explicit HoldingLog(std::shared_ptr<int> life) : m_life(std::move(life)) {}
  Row toRowData(std::string const&, std::string const&, std::string const&, std::string const&,
                std::string const&) const override {
    return {};
  }
  std::shared_ptr<int> m_life;
};

// The contents of a file with T for each moment and P for each short process time.
std::string Timeless(std::string const& path) {
  std::regex const moment(R"("'\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3}")");
  std::regex const process(R"("'00:00:\d\d\.\d{3}")");
  return std::regex_replace(std::regex_replace(ReadFile(path), moment, "T"), process, "P");
}

class CUPerformanceLoggerTest : public testing::Test {
 protected:
  CUPerformanceLoggerTest() { setenv("XDG_DATA_HOME", (m_data + "/").c_str(), 1); }
  ~CUPerformanceLoggerTest() override { unsetenv("XDG_DATA_HOME"); }

  TemporaryFolder const m_folder;
  std::string const m_data = m_folder.Path() + "/data";
  std::string const m_csv = m_data + "/Tavik_Inc_IC/Quillmere";
  std::string const m_stab = m_csv + "/QMR_ImageStabilization.csv";
  std::string const m_export = m_csv + "/QMR_Export.csv";
};

}  // namespace

// In any locale.
TEST_F(CUPerformanceLoggerTest, WritesStatusAndDuration) {
  struct CommaPoint : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
  };
  std::locale const before = std::locale::global(std::locale(std::locale(), new CommaPoint));
  std::tuple<int, double, char const*, char const*> const runs[] = {
      {0, 1234567.0006, "SUCCESS", "1234567.001"},
      {1, -0.25, "ERROR  ", "-0.250"},
      {2, 0, "CANCEL ", "0.000"},
      {3, 1e21, "", "1000000000000000000000.000"}};
  for (auto const& [status, duration, statusCell, durationCell] : runs) {
    ExportLogData data;
    data.status = static_cast<LogStatus>(status);
    data.targetDuration = duration;
    data.fileFormat = "f", data.vrFormat = "v", data.processor = "p";
    EXPECT_EQ(data.toRowData("s", "e", "t", "/p", "1"),
              (Row{statusCell, "s", "e", "t", durationCell, "/p", "1", "f", "v", "", "p"}));
  }
  std::locale::global(before);
}

TEST_F(CUPerformanceLoggerTest, WritesTimesToTheMillisecond) {
  TimeZoneVariable const zone("XST-5:30");
  CUPerformanceLogger logger("1", true);
  auto const rowOf = [&](std::chrono::system_clock::time_point start) {
    logger.StartLog(kStab, "/p", Stab());
    Pending(logger).begin()->second.startTime = start;
    logger.EndLog(kStab, "/p");
    logger.Flush(kStab);
    std::string const rows = ReadFile(m_stab);
    return rows.substr(rows.rfind("\"SUCCESS\""));
  };
  std::string row;
  std::chrono::system_clock::time_point now;
  do {
    now = std::chrono::system_clock::now();
    row = rowOf(now - 100h - 3599999ms - 600us);
  } while (std::chrono::system_clock::now() - now > 300us);
  EXPECT_EQ(row.substr(66, 13), "100:59:59.999") << row;
  // A part of a millisecond is cut off, not rounded.
  EXPECT_EQ(rowOf(std::chrono::system_clock::from_time_t(1794679867) + 45999us).substr(0, 40),
            "\"SUCCESS\",\"'2026/11/14 23:41:07.045\",\"'2");
}

TEST_F(CUPerformanceLoggerTest, KeepsCells) {
  std::pair<std::string, std::string> const cells[] = {
      {"/a \"b\" \"", "/a \"\"b\"\" \"\""},
      {"/\u00e9,b\r\nbreak\nand\rmore", "/\u00e9,b\r\nbreak\nand\rmore"},
      {std::string("nul\0l", 5), std::string("nul\0l", 5)},
      {std::string(70000, '"'), std::string(140000, '"')}};
  CUPerformanceLogger logger("1", true);
  std::string rows = kMark + kStabHead;
  for (auto const& [text, cell] : cells) {
    RunOnce(logger, text, Stab(text));
    rows += StabRow(cell, cell);
  }
  EXPECT_FALSE(fs::exists(m_stab));
  logger.Flush(kStab);
  logger.Flush(kStab);
  EXPECT_EQ(Timeless(m_stab), rows);
}

TEST_F(CUPerformanceLoggerTest, MatchesStartsWithEnds) {
  auto const other = [](int type) { return static_cast<LoggerType>(type); };
  auto const life = std::make_shared<int>();
  {
    CUPerformanceLogger logger("1", true);
    logger.EndLog(kExport, "/never");
    ImageStabLogData data = Stab("first");
    logger.StartLog(kStab, "/p", data);
    data.detectionMode = "too late";
    auto const started = Pending(logger).begin()->second.startTime;
    logger.StartLog(kStab, "/p", Stab("second"));
    EXPECT_EQ(Pending(logger).begin()->second.startTime, started);
    logger.StartLog(kExport, "/p", ExportLogData());
    logger.EndLog(kStab, "/p");
    logger.EndLog(kStab, "/p");
    logger.StartLog(other(7), "/empty row", HoldingLog(life));
    logger.EndLog(other(7), "/empty row");
    EXPECT_EQ(life.use_count(), 1);
    logger.Flush(other(7));
    EXPECT_TRUE(fs::is_empty(m_csv));
    logger.StartLog(other(7), "/p", Stab());
    logger.EndLog(other(-7), "/p");  // both are "::/p"
    logger.Flush(other(-7));
    EXPECT_EQ(Timeless(m_csv + "/.csv"), kMark + StabRow("/p"));
    logger.StartLog(kStab, "/pending", HoldingLog(life));
  }
  EXPECT_EQ(life.use_count(), 1);
  EXPECT_EQ(Timeless(m_stab), kMark + kStabHead + StabRow("/p", "first"));
  EXPECT_FALSE(fs::exists(m_export));
}

TEST_F(CUPerformanceLoggerTest, AppendsToWhateverFileIsThere) {
  CUPerformanceLogger logger("1", true);
  std::pair<std::string, std::string> const heads[] = {
      {kMark, kMark + kStabHead}, {"x", "x" + kStabHead}, {"xyz", "xyz"}};
  for (auto const& [before, head] : heads) {
    WriteFile(m_stab, before);
    for (int i = 0; i < 2; ++i) {
      RunOnce(logger, "/p", Stab());
      logger.Flush(kStab);
    }
    EXPECT_EQ(Timeless(m_stab), head + StabRow("/p") + StabRow("/p"));
  }
}

// Every row arrives whole and once, under one header, whoever flushes when.
TEST_F(CUPerformanceLoggerTest, KeepsRowsWholeAmongThreadsAndProcesses) {
  std::string const mode(3000, ';');
  for (int round = 0; round < 20; ++round) {
    CUPerformanceLogger logger("1", true);
    fs::remove(m_stab);
    pid_t const child = fork();
    OnThreads(3, [&](int thread) {
      for (int run = 0; run < 30; ++run) {
        std::string const name = std::to_string(child == 0) + std::to_string(thread);
        RunOnce(logger, "/" + name + "/" + std::to_string(run), Stab(mode));
        if (run % 3 == 0) logger.Flush(kStab);
      }
      logger.Flush(kStab);
    });
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    std::multiset<std::string> expected = {kMark + kStabHead}, lines;
    for (int i = 0; i < 180; ++i) {
      std::string const name = std::to_string(i / 90) + std::to_string(i / 30 % 3);
      expected.insert(StabRow("/" + name + "/" + std::to_string(i % 30), mode));
    }
    std::istringstream text(Timeless(m_stab));
    for (std::string line; std::getline(text, line);) lines.insert(line + "\n");
    ASSERT_TRUE(lines == expected);
  }
}

TEST_F(CUPerformanceLoggerTest, IsOneAndWritesAtTheEndOfTheProcess) {
  using Logger = CUPerformanceLogger;
  auto const useUntilExit = [](bool enabled) -> std::string {
    Logger::Initialize("1", enabled);
    Logger::Initialize("2", !enabled);
    Logger& logger = *Logger::GetInstance();
    logger.StartLog(kExport, "/exit", ExportLogData());
    logger.StartLog(kExport, "/pending", ExportLogData());
    logger.EndLog(kExport, "/exit");
    RunOnce(logger, "/exit", Stab());
    if (!enabled) logger.Flush(kExport);
    exit(0);
  };
  WriteFile(m_data, "in the way");
  EXPECT_NE(ThrownCode([] { Logger::Initialize("0", true); }), 0u);
  EXPECT_EQ(Logger::GetInstance(), nullptr);
  fs::remove(m_data);
  EXPECT_EQ(InChild([&] { return useUntilExit(true); }), "");
  std::string const exported = R"("SUCCESS",T,T,P,"0.000","/exit","1","","","","")";
  EXPECT_EQ(Timeless(m_export), kMark + kExportHead + exported + "\r\n");
  EXPECT_EQ(Timeless(m_stab), kMark + kStabHead + StabRow("/exit"));
  fs::remove_all(m_data);
  EXPECT_EQ(InChild([&] { return useUntilExit(false); }), "");
  EXPECT_FALSE(fs::exists(m_data));
}

TEST(ApplicationSupportPath, FollowsTheDesktopConvention) {
  char const* const cases[][2] = {
      {"/data", "/data"}, {"data", "/home/.local/share"}, {"", "/home/.local/share"}};
  for (auto const& [data, expected] : cases) {
    EXPECT_EQ(InChild([&, data = data] {
                setenv("XDG_DATA_HOME", data, 1);
                setenv("HOME", "/home", 1);
                return std::string(WorkspaceCopyApplicationSupportPath());
              }),
              expected);
  }
}
