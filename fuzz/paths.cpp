// The path operations do what their comments tell, here told again over plain units.

#include <algorithm>
#include <optional>
#include <vector>

#include "QuillmereLib/collections/CUArray.h"
#include "fuzz/Texts.h"

namespace {

using Path = std::u16string;
using Result = std::optional<Path>;  // nothing for a failure

bool EndsInSlash(Path const& path) { return !path.empty() && path.back() == u'/'; }

Path WithoutTrailingSlash(Path const& path) {
  return EndsInSlash(path) ? path.substr(0, path.size() - 1) : path;
}

// By the collation, which passes over some characters.
bool IsRoot(Path const& path) { return *MakeText(path) == *MakeText(u"/"); }

Path Appended(Path const& path, Path const& component) {
  return path + (EndsInSlash(path) ? u"" : u"/") + component;
}

Result WithoutLastComponent(Path const& path) {
  if (path == u"/") return path;
  std::size_t const slash = WithoutTrailingSlash(path).rfind(u'/');
  if (slash == Path::npos) return std::nullopt;
  return path.substr(0, slash == 0 ? 1 : slash);
}

Result FileName(Path const& path) {
  std::size_t const slash = path.rfind(u'/');
  if (slash == Path::npos) return std::nullopt;
  return path.substr(slash + 1);
}

Result FileNameNoExtension(Path const& path) {
  Result const name = FileName(path);
  return name ? name->substr(0, name->rfind(u'.')) : name;
}

Result Extension(Path const& path) {
  std::size_t const dot = path.rfind(u'.');
  if (dot == Path::npos) return std::nullopt;
  return path.substr(dot);
}

Result LastComponent(Path const& path) {
  return IsRoot(path) ? u"/" : FileName(WithoutTrailingSlash(path));
}

std::vector<Path> Components(Path path) {
  if (IsRoot(path)) return {u"/"};
  std::vector<Path> components;
  if (path.compare(0, 1, u"/") == 0) {
    components.push_back(u"/");
    path.erase(0, 1);
  }
  path = WithoutTrailingSlash(path);
  for (std::size_t slash; (slash = path.find(u'/')) != Path::npos; path.erase(0, slash + 1)) {
    components.push_back(path.substr(0, slash));
  }
  components.push_back(path);
  return components;
}

void CheckComponents(CUStringMac& text, Path const& path) {
  CUSharedPtr<CUArray> array;
  Require(text.PathComponents(&array) == CUResult_Success);
  std::vector<Path> components;
  for (unsigned int i = 0; i < array->Count(); ++i) {
    components.push_back(UnitsOf(dynamic_cast<CUStringMac&>(*array->ObjectAtIndex(i))));
  }
  Require(components == Components(path));
}

struct {
  CUResult (CUStringMac::*operation)(CUStringMac&);
  Result (*model)(Path const&);
} const kOperations[] = {{&CUStringMac::PathRemoveLastComponent, WithoutLastComponent},
                         {&CUStringMac::PathGetFileName, FileName},
                         {&CUStringMac::PathGetFileNameNoExtension, FileNameNoExtension},
                         {&CUStringMac::PathGetExtension, Extension},
                         {&CUStringMac::PathGetLastComponent, LastComponent}};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  Input input(bytes, std::min<std::size_t>(size, 128));
  // Each byte is a unit: to a path no other character means more than these.
  auto const widened = [](std::string const& line) {
    Path units;
    for (char const c : line) units.push_back(static_cast<std::uint8_t>(c));
    return units;
  };
  Path const path = widened(input.TakeLine());
  Path const component = widened(input.TakeLine());
  CUSharedPtr<CUStringMac> const text = MakeText(path);

  CUStringMac appended;
  Require(text->PathAppend(*MakeText(component), appended) == CUResult_Success);
  Require(UnitsOf(appended) == Appended(path, component));
  CheckComponents(*text, path);
  for (auto const& [operation, model] : kOperations) {
    // Into the path itself, which a failure keeps, but for the one that empties it.
    CUStringMac result(*text);
    bool const succeeds = (result.*operation)(result) == CUResult_Success;
    Result const expected = model(path);
    Require(succeeds == expected.has_value());
    bool const empties = operation == &CUStringMac::PathRemoveLastComponent;
    Require(UnitsOf(result) == (succeeds ? *expected : empties ? Path() : path));
    CUStringMac other;
    Require((*text.*operation)(other) == (succeeds ? CUResult_Success : CUResult_Failed));
    Require(UnitsOf(other) == expected.value_or(Path()) && UnitsOf(*text) == path);
  }
  return 0;
}
