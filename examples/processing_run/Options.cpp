#include "Options.h"

#include "Job.h"
#include "VisibleText.h"

char const* const kHelpText =
    "Usage: processing_run [OPTION]... [PATH]...\n"
    "\n"
    "Reads every file under the given paths, shows type, size and checksum of each in a\n"
    "table, and writes a report. Without a path it reads /usr/share/common-licenses, or\n"
    "/usr/share/doc/base-files where that is missing.\n"
    "\n"
    "  --job FILE           take options and paths from an XML file first, see job.xml beside\n"
    "                       this program's source\n"
    "  --output FOLDER      copy the files there too, each given path under its name\n"
    "  --recycle            at the end, send the output folder with all in it to the trash\n"
    "  --report-file PATH   where the report goes (./processing_report.txt)\n"
    "  --overwrite          replace files of the names of the report and the copies, whatever\n"
    "                       they are; without this, only an earlier report is replaced\n"
    "  --threads N          read on so many threads (one for each processor)\n"
    "  --sort KEY           name (by the rules of your language), size or type\n"
    "  --descending         the last first\n"
    "  --report             have a report on the machine written beside the logs\n"
    "  --help               show this text\n"
    "\n"
    "Links to files are read, links to folders are not followed. The checksum is 64-bit\n"
    "FNV-1a. What could not be read or copied is told on standard error, a line each.\n"
    "Two logs of all runs are kept in the user's data folder; the last lines name them.\n"
    "Ctrl-C stops: files that are copied by then stay, none is left incomplete, and the\n"
    "report says so.\n"
    "\n"
    "Exit status: 0 all went well; 1 some entries, the report or the recycling failed;\n"
    "2 wrong usage, nothing was done; 130 stopped by Ctrl-C.\n";

namespace {

constexpr char const* kDefaultFolder = "/usr/share/common-licenses";
constexpr char const* kOtherDefaultFolder = "/usr/share/doc/base-files";
constexpr char const* kDefaultReportFile = "processing_report.txt";

std::string WithoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// Entries can be created only by a path with a folder in it, and several folders at once only where
// each has one.
void AddFolder(CUSharedPtr<CUStringMac>& path) {
  if (Utf8Of(*path).front() == '/') return;
  CUStringMac here(".", CUString_CharCode_UTF8);
  CUSharedPtr<CUStringMac> const longer = new CUStringMac;
  here.PathAppend(*path, *longer);
  path = longer;
}

class Parser {
 public:
  Parser(std::vector<std::string> const& words, bool isJob, Options& options)
      : m_rest(words.begin()), m_end(words.end()), m_isJob(isJob), m_options(options) {}

  std::string Parse() {
    bool optionsOver = false;
    while (m_rest != m_end) {
      std::string const argument = *m_rest++;
      if (optionsOver || argument.size() < 2 || argument[0] != '-') {
        AddPath(argument);
      } else if (argument == "--") {
        optionsOver = true;
      } else {
        std::string problem = TakeOption(argument);
        if (!problem.empty()) return problem;
      }
    }
    return std::string();
  }

 private:
  // A value follows as the next argument, or in the same one behind an equals sign.
  std::string TakeOption(std::string const& argument) {
    std::size_t const equals = argument.find('=');
    std::string const name = argument.substr(0, equals);
    bool const valued = name == "--sort" || name == "--report-file" || name == "--output" ||
                        name == "--threads" || name == "--job";
    std::string value;
    if (!valued && equals != std::string::npos) {
      return "option " + VisibleText(name) + " takes no value";
    }
    if (valued) {
      if (equals != std::string::npos) {
        value = argument.substr(equals + 1);
      } else if (m_rest != m_end) {
        value = *m_rest++;
      }
      if (value.empty()) return "option " + name + " needs a value";
    }

    if (name == "--job") return TakeJob(value);
    if (name == "--sort") return SetSortKey(value);
    if (name == "--report-file") return SetPath("report", value, m_options.reportFile);
    if (name == "--output") {
      return SetPath("output", WithoutTrailingSlashes(value), m_options.output);
    }
    if (name == "--threads") return SetThreadCount(value);
    if (name == "--descending") {
      m_options.descending = true;
    } else if (name == "--overwrite") {
      m_options.overwrite = true;
    } else if (name == "--recycle") {
      m_options.recycle = true;
    } else if (name == "--report") {
      m_options.systemReport = true;
    } else if (name == "--help" || name == "-h") {
      m_options.help = true;
    } else {
      return "unknown option " + VisibleText(name);
    }
    return std::string();
  }

  // A job names no other: it could name itself.
  std::string TakeJob(std::string const& path) {
    if (m_isJob) return "a job cannot hold another";
    std::vector<std::string> words;
    std::string const problem = ReadJob(path, words);
    return problem.empty() ? Parser(words, true, m_options).Parse() : problem;
  }

  std::string SetSortKey(std::string const& value) {
    if (value == "name") {
      m_options.sortKey = FindingKey::kName;
    } else if (value == "size") {
      m_options.sortKey = FindingKey::kSize;
    } else if (value == "type") {
      m_options.sortKey = FindingKey::kType;
    } else {
      return "cannot sort by " + VisibleText(value) + ", only by name, size or type";
    }
    return std::string();
  }

  static std::string SetPath(std::string const& whose, std::string const& value,
                             CUSharedPtr<CUStringMac>& path) {
    path = StringOf(value);
    if (path != nullptr) return std::string();
    return "the " + whose + "'s path " + VisibleText(value) + " is not UTF-8 text";
  }

  std::string SetThreadCount(std::string const& value) {
    bool const plausible =
        value.size() <= 3 && value.find_first_not_of("0123456789") == std::string::npos;
    m_options.threadCount = plausible ? static_cast<unsigned int>(std::stoul(value)) : 0;
    if (m_options.threadCount != 0) return std::string();
    return "the number of threads must be from 1 to 999, not " + VisibleText(value);
  }

  void AddPath(std::string const& path) { m_options.paths.push_back(WithoutTrailingSlashes(path)); }

  std::vector<std::string>::const_iterator m_rest;
  std::vector<std::string>::const_iterator m_end;
  bool m_isJob;
  Options& m_options;
};

}  // namespace

std::string ParseOptions(int argc, char const* const* argv, Options& options) {
  options.reportFile = StringOf(kDefaultReportFile);
  std::vector<std::string> const words(argv + (argc > 0 ? 1 : 0), argv + argc);
  std::string problem = Parser(words, false, options).Parse();
  if (!problem.empty()) return problem;

  if (options.paths.empty()) {
    bool const there = CUDirectory::Exists(StringOf(kDefaultFolder));
    options.paths.push_back(there ? kDefaultFolder : kOtherDefaultFolder);
  }
  if (options.recycle && options.output == nullptr) return "--recycle needs --output";
  if (options.threadCount == 0) {
    options.threadCount = static_cast<unsigned int>(CUEnvironment::ProcessorCount());
  }
  CUStringMac folder;
  if (CUFailed(options.reportFile->PathRemoveLastComponent(folder))) AddFolder(options.reportFile);
  if (options.output != nullptr) AddFolder(options.output);
  return std::string();
}
