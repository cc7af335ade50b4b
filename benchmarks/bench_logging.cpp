// The two logs beside their peers, on files in the temporary folder. A line is formatted from a
// text and a number, and stands in the file when the call returns.

#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>

#include <cstdio>
#include <ctime>

#include "QuillmereLib/logging/CULog.h"
#include "QuillmereLib/logging/CUPerformanceLogger.h"
#include "benchmarks/Cases.h"
#include "benchmarks/TemporaryFiles.h"

namespace {

constexpr char const* kFormat = "%s took %d ms";
constexpr char const* kFrame = "frame";

// What CULog's line takes at least: the same text, and a file opened, measured, written and closed.
bool WritePlainLine(std::string const& path, int number) {
  std::time_t const now = std::time(nullptr);
  std::tm local = {};
  localtime_r(&now, &local);
  char line[256];
  char message[128];
  std::snprintf(message, sizeof message, kFormat, kFrame, number);
  int const length =
      std::snprintf(line, sizeof line, "[%04d/%02d/%02d %02d:%02d:%02d]\t[%s]\t%s\r\n",
                    local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                    local.tm_min, local.tm_sec, "WARNING", message);
  Descriptor const file(path, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC);
  struct stat facts;
  if (fstat(file.Get(), &facts) != 0) return false;
  if (facts.st_size > 1000000 && ftruncate(file.Get(), 0) != 0) return false;
  return write(file.Get(), line, static_cast<std::size_t>(length)) == length;
}

std::shared_ptr<spdlog::logger> MakeSpdlog() {
  auto logger = std::make_shared<spdlog::logger>(
      "bench", std::make_shared<spdlog::sinks::rotating_file_sink_mt>(TheFolder().File("spd.log"),
                                                                      1000000, 9));
  logger->set_pattern("[%Y/%m/%d %H:%M:%S]\t[%l]\t%v");
  logger->set_level(spdlog::level::info);
  logger->flush_on(spdlog::level::trace);
  return logger;
}

Poco::Logger& MakePoco() {
  Poco::AutoPtr<Poco::FileChannel> file(new Poco::FileChannel(TheFolder().File("poco.log")));
  file->setProperty("rotation", "1 M");
  file->setProperty("purgeCount", "9");
  file->setProperty("times", "local");
  Poco::AutoPtr<Poco::PatternFormatter> form(
      new Poco::PatternFormatter("[%L%Y/%m/%d %H:%M:%S]\t[%p]\t%t"));
  Poco::AutoPtr<Poco::FormattingChannel> channel(new Poco::FormattingChannel(form, file));
  return Poco::Logger::create("bench", channel, Poco::Message::PRIO_INFORMATION);
}

void RegisterLines() {
  CULog::InitializeWithName(SharedOurs(TheFolder().Path()), SharedOurs("run"), 3);
  CUSharedPtr<CUStringMac> const format = SharedOurs(kFormat);
  std::string const plain = TheFolder().File("plain.log");
  auto const spd = MakeSpdlog();
  Poco::Logger& poco = MakePoco();
  struct Level {
    char const* name;
    unsigned int ours;
    spdlog::level::level_enum spdlogs;
    Poco::Message::Priority pocos;
  };
  for (Level const& level :
       {Level{"logging/line/", 2, spdlog::level::warn, Poco::Message::PRIO_WARNING},
        Level{"logging/filtered/", 4, spdlog::level::debug, Poco::Message::PRIO_DEBUG}}) {
    std::string const name = level.name;
    Measure(name + "quillmere", [=, number = 0]() mutable {
      CULog::Write(level.ours, kFormat, kFrame, ++number);
      return number;
    });
    Measure(name + "spdlog", [=, number = 0]() mutable {
      spd->log(level.spdlogs, "{} took {} ms", kFrame, ++number);
      return number;
    });
    Measure(name + "poco_filechannel", [=, &poco, number = 0]() mutable {
      if (poco.is(level.pocos)) {
        poco.log(Poco::Message("bench", Poco::format(kFormat, std::string(kFrame), ++number),
                               level.pocos));
      }
      return number;
    });
  }
  Measure("logging/line/plain_c", [=, number = 0]() mutable {
    if (!WritePlainLine(plain, ++number)) std::abort();
    return number;
  });
}

ExportLogData Record() {
  ExportLogData data;
  data.targetDuration = 120;
  data.fileFormat = "MOV";
  data.vrFormat = "none";
  data.useDLUS = "no";
  data.processor = "Example processor, 8 cores";
  return data;
}

constexpr int kRows = 100000;

std::string PathOf(int row) { return "/films/reel " + std::to_string(row) + ".mov"; }

// Ends runs until 100,000 rows wait. Untimed.
void KeepRows(CUPerformanceLogger& logger) {
  ExportLogData const data = Record();
  for (int row = 0; row < kRows; ++row) {
    logger.StartLog(LoggerType_Export, PathOf(row), data);
    logger.EndLog(LoggerType_Export, PathOf(row));
  }
}

void RegisterRuns() {
  setenv("XDG_DATA_HOME", TheFolder().Path().c_str(), 1);
  std::string const path = TheFolder().File("Tavik_Inc_IC/Quillmere/QMR_Export.csv");
  benchmark::RegisterBenchmark("logging/start_end/quillmere", [](benchmark::State& state) {
    ExportLogData const data = Record();
    auto logger = std::make_unique<CUPerformanceLogger>("1.2.3", true);
    for (int run = 0; state.KeepRunning(); ++run) {
      logger->StartLog(LoggerType_Export, "/films/reel.mov", data);
      logger->EndLog(LoggerType_Export, "/films/reel.mov");
      if (run % kRows != 0) continue;
      state.PauseTiming();
      logger = std::make_unique<CUPerformanceLogger>("1.2.3", true);
      state.ResumeTiming();
    }
  });
  benchmark::RegisterBenchmark("logging/flush_100000/quillmere", [=](benchmark::State& state) {
    CUPerformanceLogger logger("1.2.3", true);
    for (auto _ : state) {
      state.PauseTiming();
      unlink(path.c_str());
      KeepRows(logger);
      state.ResumeTiming();
      logger.Flush(LoggerType_Export);
    }
  });
  // Writes lines that are ready, by the bytes that the logger has put into its file.
  benchmark::RegisterBenchmark("logging/flush_100000/fwrite", [=](benchmark::State& state) {
    std::string const line =
        "\"SUCCESS\",\"'2026/11/14 23:41:07.045\",\"'2026/11/14 23:41:07.045\",\"'00:00:00.000\","
        "\"120.000\",\"/films/reel 12345.mov\",\"1.2.3\",\"MOV\",\"none\",\"no\","
        "\"Example processor, 8 cores\"\r\n";
    std::string const other = TheFolder().File("plain.csv");
    for (auto _ : state) {
      state.PauseTiming();
      unlink(other.c_str());
      state.ResumeTiming();
      std::FILE* const file = std::fopen(other.c_str(), "ab");
      if (file == nullptr) std::abort();
      for (int row = 0; row < kRows; ++row) std::fwrite(line.data(), 1, line.size(), file);
      std::fclose(file);
    }
  });
}

void RegisterAll() {
  RegisterLines();
  RegisterRuns();
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
