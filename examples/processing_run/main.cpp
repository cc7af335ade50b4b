// processing_run: reads every file under the given paths, copies them if asked to, and
// reports on them.

#include <QuillmereLib/QuillmereLib.h>

#include <csignal>
#include <cstdio>
#include <exception>

#include "ErrorWords.h"
#include "Finding.h"
#include "FolderWalk.h"
#include "Manifest.h"
#include "Options.h"
#include "OutputFolder.h"
#include "ParallelExamination.h"
#include "ProgressBar.h"
#include "Report.h"
#include "RunLogs.h"
#include "StopRequest.h"
#include "Table.h"
#include "TreeCopy.h"
#include "VisibleText.h"

namespace {

enum ExitStatus { kAllWell = 0, kSomeFailed = 1, kWrongUsage = 2, kStopped = 130 };

RunResult ProcessFiles(Options const& options, ProgressBar& bar, Failures& failures) {
  WalkResult const walk = WalkPaths(options.paths, failures);
  bar.Begin(std::string(), static_cast<unsigned int>(walk.files.size()), walk.bytes);
  ExamineFiles(walk.files, options.threadCount, bar, failures);
  bar.Hide();

  RunResult result;
  result.paths = options.paths;
  result.files = walk.files;
  result.linksToFolders = walk.linksToFolders;
  result.stopped = walk.stopped;
  result.findings = new CUMutableArray;
  for (CUSharedPtr<FileTask> const& task : walk.files) {
    if (task->finding != nullptr) {
      result.bytes += task->finding->Size();
      result.findings->AddObject(task->finding);
    } else if (task->failure.empty()) {
      result.stopped = true;
    }
  }
  result.findings->SortUsingDescriptor(new FindingOrder(options.sortKey, options.descending));

  if (options.output != nullptr && !result.stopped) {
    TreeCopy copy(options.output, options.overwrite, bar, failures);
    result.stopped = !copy.Run(walk);
    bar.Hide();
    result.filesCopied = copy.FilesCopied();
    result.bytesCopied = copy.BytesCopied();
  }
  result.output = options.output;
  return result;
}

// Why nothing can be done at all, or an empty text.
std::string WhyNot(Options const& options) {
  std::string problem = WhyNoReport(options.reportFile, options.overwrite);
  if (problem.empty()) {
    problem = WhyNoManifest(ManifestPath(*options.reportFile), options.overwrite);
  }
  if (problem.empty() && options.output != nullptr) problem = WhyNoOutput(options);
  return problem;
}

// Prints where something is, or why it is not; whether it is.
bool PrintOutcome(char const* what, CUStringMac& path, std::string const& problem) {
  if (problem.empty()) {
    std::printf("%s: %s\n", what, VisibleText(Utf8Of(path)).c_str());
  } else {
    WriteProblem(problem);
  }
  return problem.empty();
}

// The report is written before the table is shown: it is there also if nobody reads the table.
int Run(Options const& options) {
  std::string problem = WhyNot(options);
  if (!problem.empty()) {
    WriteProblem(problem);
    return kWrongUsage;
  }
  RunLogs logs;
  CULog::Write(kLogInfo, "run over %zu paths", options.paths.size());
  if (options.systemReport) logs.StartSystemReport();
  for (std::string const& path : options.paths) PrintGivenPath(path);
  PrintOutput(options.output != nullptr ? options.output : options.reportFile);

  ProgressBar bar;
  Failures failures(bar);
  RunResult const result = ProcessFiles(options, bar, failures);
  bool failed = !failures.All().empty();
  problem = WriteReport(options.reportFile, options.overwrite, result, failures.All());
  PrintTable(result, failures.All().size());
  failed |= !PrintOutcome("Report", *options.reportFile, problem);
  CUSharedPtr<CUStringMac> const manifest = ManifestPath(*options.reportFile);
  problem = WriteManifest(manifest, options.overwrite, result.files, failures.All());
  failed |= !PrintOutcome("Manifest", *manifest, problem);

  CULog::Write(kLogInfo, "%u files read, %u copied, %zu failures", result.findings->Count(),
               result.filesCopied, failures.All().size());
  logs.PrintPlaces();

  if (result.stopped) {
    WriteProblem("stopped before all was done");
    CULog::Write(kLogWarning, "stopped before all was done");
    return kStopped;
  }
  if (options.recycle) {
    failed |= !PrintOutcome("Recycled", *options.output, RecycleOutput(options.output));
  }
  return failed ? kSomeFailed : kAllWell;
}

int RunCommandLine(int argc, char const* const* argv) {
  Options options;
  std::string const problem = ParseOptions(argc, argv, options);
  if (!problem.empty()) {
    WriteProblem(problem + "; --help tells more");
    return kWrongUsage;
  }
  int status = kAllWell;
  if (options.help) {
    std::fputs(kHelpText, stdout);
  } else {
    status = Run(options);
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    WriteProblem("standard output could not be written");
    return kSomeFailed;
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // A run goes on to its report when whoever reads its output has gone.
  std::signal(SIGPIPE, SIG_IGN);
  NoteInterrupts();
  try {
    return RunCommandLine(argc, argv);
  } catch (std::exception const& failure) {
    WriteProblem(failure.what());
  } catch (unsigned int errorCode) {
    WriteProblem(ErrorWords(errorCode));
  }
  return kSomeFailed;
}
