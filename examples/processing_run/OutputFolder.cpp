#include "OutputFolder.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "ErrorWords.h"
#include "VisibleText.h"

namespace {

// Links resolved, as far as the path exists.
std::filesystem::path Resolved(std::string const& path) {
  std::error_code error;
  std::filesystem::path const resolved = std::filesystem::weakly_canonical(path, error);
  if (error) return path;
  return resolved.has_filename() ? resolved : resolved.parent_path();
}

// Whether it is `folder` itself or lies below.
bool IsWithin(std::string const& path, std::string const& folder) {
  std::filesystem::path const inner = Resolved(path);
  std::filesystem::path const outer = Resolved(folder);
  auto const met = std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end());
  return met.first == outer.end();
}

}  // namespace

std::string WhyNoOutput(Options const& options) {
  std::string const output = Utf8Of(*options.output);
  std::string const visible = VisibleText(output);
  if (CUFile::Exists(options.output)) return visible + ": the output cannot go here, it is a file";
  for (std::string const& path : options.paths) {
    if (IsWithin(output, path)) {
      return visible + ": the output cannot go here, it lies within the input " + VisibleText(path);
    }
    if (options.recycle && IsWithin(path, output)) {
      return visible + ": the output cannot be recycled, the input " + VisibleText(path) +
             " lies within it";
    }
  }
  if (options.recycle && IsWithin(Utf8Of(*options.reportFile), output)) {
    return visible + ": the output cannot be recycled, the report lies within it";
  }
  return std::string();
}

std::string RecycleOutput(CUSharedPtr<CUStringMac> output) {
  std::string const visible = VisibleText(Utf8Of(*output));
  try {
    CUDirectory::Recycle(output);
    return std::string();
  } catch (unsigned int errorCode) {
    std::string const reason = errorCode == CUError_IOFailure
                                   ? "the system refuses, or the drive has no trash"
                                   : ErrorWords(errorCode);
    return visible + ": the output cannot be recycled: " + reason;
  }
}
