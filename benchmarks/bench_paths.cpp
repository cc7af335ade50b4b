// Paths beside their peers. Every library starts from what its user would hold: this one and Qt
// from a string (QFileInfo is made from it), the others from a path object.

#include <Poco/File.h>
#include <Poco/Path.h>
#include <sys/stat.h>

#include <QDir>
#include <QFileInfo>
#include <QStringList>
#include <filesystem>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUFile.h"
#include "QuillmereLib/strings/CUStringMac.h"
#include "benchmarks/Cases.h"

namespace {

namespace fs = std::filesystem;

using PathOperation = CUResult (CUStringMac::*)(CUStringMac& result);

// What each operation gives of the path's parts; the leading dot of an extension is Qt's and Poco's
// to leave out, and the standard library's and ours to keep.
struct Part {
  char const* name;
  PathOperation ours;
  QString (QFileInfo::*qt)() const;
  fs::path (fs::path::*standard)() const;
  std::string (*poco)(Poco::Path const& path);
};

Part const kParts[] = {
    {"file_name", &CUStringMac::PathGetFileName, &QFileInfo::fileName, &fs::path::filename,
     [](Poco::Path const& path) -> std::string { return path.getFileName(); }},
    {"parent", &CUStringMac::PathRemoveLastComponent, &QFileInfo::path, &fs::path::parent_path,
     [](Poco::Path const& path) { return path.parent().toString(); }},
    {"extension", &CUStringMac::PathGetExtension, &QFileInfo::suffix, &fs::path::extension,
     [](Poco::Path const& path) -> std::string { return path.getExtension(); }},
    {"stem", &CUStringMac::PathGetFileNameNoExtension, &QFileInfo::completeBaseName,
     &fs::path::stem, [](Poco::Path const& path) -> std::string { return path.getBaseName(); }}};

void RegisterParts(std::string const& suffix, std::string const& path) {
  QString const qt = QString::fromStdString(path);
  fs::path const standard(path);
  Poco::Path const poco(path);
  for (Part const& part : kParts) {
    std::string const name = "paths/" + (part.name + suffix) + "/";
    MeasureChecked(name + "quillmere", true, [ours = Ours(path), operation = part.ours]() mutable {
      CUStringMac result;
      bool const done = (ours.*operation)(result) == CUResult_Success;
      benchmark::DoNotOptimize(result);
      return done;
    });
    Measure(name + "qfileinfo", [qt, operation = part.qt] { return (QFileInfo(qt).*operation)(); });
    Measure(name + "std_path",
            [standard, operation = part.standard] { return (standard.*operation)(); });
    Measure(name + "std_path_from_string",
            [path, operation = part.standard] { return (fs::path(path).*operation)(); });
    Measure(name + "poco_path", [poco, operation = part.poco] { return operation(poco); });
  }
}

void RegisterAppend(std::string const& suffix, std::string const& folder,
                    std::string const& component) {
  std::string const name = "paths/append" + suffix + "/";
  MeasureChecked(name + "quillmere", true,
                 [ours = Ours(folder), ourComponent = Ours(component)]() mutable {
                   CUStringMac result;
                   bool const done = ours.PathAppend(ourComponent, result) == CUResult_Success;
                   benchmark::DoNotOptimize(result);
                   return done;
                 });
  QString const qt = QString::fromStdString(folder);
  QString const qtComponent = QString::fromStdString(component);
  Measure(name + "qdir", [=] { return QDir(qt).filePath(qtComponent); });
  Measure(name + "qfileinfo", [=] { return QFileInfo(qt + u'/' + qtComponent).filePath(); });
  Measure(name + "std_path",
          [path = fs::path(folder), tail = fs::path(component)] { return path / tail; });
  Measure(name + "poco_path", [path = Poco::Path::forDirectory(folder), component] {
    return Poco::Path(path, component).toString();
  });
}

void RegisterComponents(std::string const& suffix, std::string const& path) {
  std::string const name = "paths/components" + suffix + "/";
  fs::path const standard(path);
  auto const count = static_cast<std::size_t>(std::distance(standard.begin(), standard.end()));
  MeasureChecked(name + "quillmere", static_cast<unsigned int>(count),
                 [ours = Ours(path)]() mutable {
                   CUSharedPtr<CUArray> components;
                   ours.PathComponents(&components);
                   return components->Count();
                 });
  Measure(name + "qstring_split", [qt = QString::fromStdString(path)] { return qt.split(u'/'); });
  MeasureChecked(name + "std_path", count, [standard] {
    std::vector<fs::path> const components(standard.begin(), standard.end());
    benchmark::DoNotOptimize(components.data());
    return components.size();
  });
  MeasureChecked(name + "std_path_from_string", count, [path] {
    fs::path const parsed(path);
    std::vector<fs::path> const components(parsed.begin(), parsed.end());
    benchmark::DoNotOptimize(components.data());
    return components.size();
  });
  Measure(name + "poco_path", [poco = Poco::Path(path)] {
    std::vector<std::string> components;
    for (int i = 0; i <= poco.depth(); ++i) components.push_back(poco[i]);
    return components;
  });
}

// Ours asks for the kind of entry too, as do the peers here.
void RegisterExists(std::string const& kind, std::string const& path, bool directory,
                    bool expected) {
  std::string const name = "paths/exists_" + kind + "/";
  MeasureChecked(name + "quillmere", expected, [ours = Ours(path), directory]() mutable {
    return directory ? CUDirectory::Exists(&ours) : CUFile::Exists(&ours);
  });
  MeasureChecked(name + "qfileinfo", expected, [qt = QString::fromStdString(path), directory] {
    QFileInfo const info(qt);
    return directory ? info.isDir() : info.exists() && !info.isDir();
  });
  MeasureChecked(name + "std_path", expected, [standard = fs::path(path), directory] {
    std::error_code error;
    fs::file_status const status = fs::status(standard, error);
    return fs::exists(status) && fs::is_directory(status) == directory;
  });
  MeasureChecked(name + "poco_file", expected, [path, directory] {
    Poco::File const file(path);
    return file.exists() && file.isDirectory() == directory;
  });
  MeasureChecked(name + "stat", expected, [path, directory] {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) == directory;
  });
}

void RegisterAll() {
  std::string const ascii = "/media/archive/Projects/Reel 14/captures";
  std::string const german = "/media/Archiv/Überspielungen/Größe XL/Kapitel Öst";
  RegisterParts("", ascii + "/title 02.take 7.mpg");
  RegisterParts("_nonascii", german + "/Vorspann für Übung.mpg");
  RegisterAppend("", ascii, "title 02.take 7.mpg");
  RegisterAppend("_nonascii", german, "Vorspann für Übung.mpg");
  RegisterComponents("", ascii + "/title 02.take 7.mpg");
  RegisterComponents("_nonascii", german + "/Vorspann für Übung.mpg");

  RegisterExists("file", "/usr/include/unicode/ucol.h", false, true);
  RegisterExists("directory", "/usr/include/unicode", true, true);
  RegisterExists("missing", "/usr/include/unicode/no such header.h", false, false);
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
