// processing_run: reads every file under the given paths and reports on them.

#include <QuillmereLib/QuillmereLib.h>

#include <csignal>
#include <cstdio>
#include <exception>

#include "FileExamination.h"
#include "Finding.h"
#include "FolderWalk.h"
#include "Options.h"
#include "ProgressBar.h"
#include "Report.h"
#include "Table.h"
#include "VisibleText.h"

namespace {

enum ExitStatus { kAllWell = 0, kSomeFailed = 1, kWrongUsage = 2 };

RunResult ProcessFiles(Options const& options, ProgressBar& bar, Failures& failures) {
  WalkResult const walk = WalkPaths(options.paths, failures);
  bar.Begin(walk.files->Count(), walk.bytes);

  RunResult result;
  result.paths = options.paths;
  result.linksToFolders = walk.linksToFolders;
  result.findings = new CUMutableArray;
  FileExamination examination(bar, failures);
  for (unsigned int i = 0; i < walk.files->Count(); ++i) {
    CUSharedPtr<CUObject> const object = walk.files->ObjectAtIndex(i);
    CUSharedPtr<CUStringMac> const path = dynamic_cast<CUStringMac*>(object.Get());
    CUSharedPtr<Finding> const finding = examination.Examine(path);
    bar.AddFile();
    if (finding == nullptr) continue;
    result.bytes += finding->Size();
    result.findings->AddObject(finding);
  }
  bar.Hide();
  result.findings->SortUsingDescriptor(new FindingOrder(options.sortKey, options.descending));
  return result;
}

// The report is written before the table is shown: it is there also if nobody reads the table.
int Run(Options const& options) {
  std::string problem = WhyNoReport(options.reportFile, options.overwrite);
  if (!problem.empty()) {
    WriteProblem(problem);
    return kWrongUsage;
  }
  for (std::string const& path : options.paths) PrintGivenPath(path);

  ProgressBar bar;
  Failures failures(bar);
  RunResult const result = ProcessFiles(options, bar, failures);
  problem = WriteReport(options.reportFile, options.overwrite, result, failures.All());
  PrintTable(result, failures.All().size());
  if (problem.empty()) {
    std::printf("Report: %s\n", VisibleText(Utf8Of(*options.reportFile)).c_str());
  } else {
    WriteProblem(problem);
  }
  return problem.empty() && failures.All().empty() ? kAllWell : kSomeFailed;
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
  try {
    return RunCommandLine(argc, argv);
  } catch (std::exception const& failure) {
    WriteProblem(failure.what());
  } catch (unsigned int errorCode) {
    WriteProblem("error code " + std::to_string(errorCode));
  }
  return kSomeFailed;
}
