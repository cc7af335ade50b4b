#include "Options.h"

#include "VisibleText.h"

char const* const kHelpText =
    "Usage: processing_run [OPTION]... [PATH]...\n"
    "\n"
    "Reads every file under the given paths, shows type, size and checksum of each in a\n"
    "table, and writes a report. Without a path it reads /usr/share/common-licenses, or\n"
    "/usr/share/doc/base-files where that is missing.\n"
    "\n"
    "  --report-file PATH   where the report goes (./processing_report.txt)\n"
    "  --overwrite          replace a file of that name whatever it is; without this, only\n"
    "                       an earlier report is replaced\n"
    "  --sort KEY           name (by the rules of your language), size or type\n"
    "  --descending         the last first\n"
    "  --help               show this text\n"
    "\n"
    "Links to files are read, links to folders are not followed. The checksum is 64-bit\n"
    "FNV-1a. What could not be read is told on standard error, a line each.\n"
    "\n"
    "Exit status: 0 all went well; 1 some entries, or the report, failed; 2 wrong usage,\n"
    "nothing was done.\n";

namespace {

constexpr char const* kDefaultFolder = "/usr/share/common-licenses";
constexpr char const* kOtherDefaultFolder = "/usr/share/doc/base-files";
constexpr char const* kDefaultReportFile = "processing_report.txt";

class Parser {
 public:
  Parser(int argc, char const* const* argv, Options& options)
      : m_rest(argv + 1), m_end(argv + argc), m_options(options) {}

  std::string Parse() {
    bool optionsOver = false;
    while (m_rest != m_end) {
      std::string const argument = *m_rest++;
      if (optionsOver || argument.size() < 2 || argument[0] != '-') {
        AddPath(argument);
      } else if (argument == "--") {
        optionsOver = true;
      } else {
        std::string const problem = TakeOption(argument);
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
    bool const valued = name == "--sort" || name == "--report-file";
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

    if (name == "--sort") return SetSortKey(value);
    if (name == "--report-file") return SetReportFile(value);
    if (name == "--descending") {
      m_options.descending = true;
    } else if (name == "--overwrite") {
      m_options.overwrite = true;
    } else if (name == "--help" || name == "-h") {
      m_options.help = true;
    } else {
      return "unknown option " + VisibleText(name);
    }
    return std::string();
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

  std::string SetReportFile(std::string const& value) {
    m_options.reportFile = StringOf(value);
    if (m_options.reportFile == nullptr) {
      return "the report's path " + VisibleText(value) + " is not UTF-8 text";
    }
    return std::string();
  }

  void AddPath(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    m_options.paths.push_back(path);
  }

  char const* const* m_rest;
  char const* const* m_end;
  Options& m_options;
};

}  // namespace

std::string ParseOptions(int argc, char const* const* argv, Options& options) {
  options.reportFile = StringOf(kDefaultReportFile);
  std::string const problem = Parser(argc, argv, options).Parse();
  if (!problem.empty()) return problem;

  if (options.paths.empty()) {
    bool const there = CUDirectory::Exists(StringOf(kDefaultFolder));
    options.paths.push_back(there ? kDefaultFolder : kOtherDefaultFolder);
  }
  // A file can be created only by a path with a folder in it.
  CUStringMac folder;
  if (CUFailed(options.reportFile->PathRemoveLastComponent(folder))) {
    CUStringMac here(".", CUString_CharCode_UTF8);
    CUSharedPtr<CUStringMac> const path = new CUStringMac;
    here.PathAppend(*options.reportFile, *path);
    options.reportFile = path;
  }
  return std::string();
}
