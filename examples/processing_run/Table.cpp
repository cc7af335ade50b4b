#include "Table.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "DriveText.h"
#include "Finding.h"
#include "VisibleText.h"

namespace {

constexpr std::size_t kSizeColumn = 3;  // the one that is aligned to the right

using Row = std::vector<std::string>;

std::string Cell(CUSharedPtr<CUStringMac> const& text) { return VisibleText(Utf8Of(*text)); }

Row RowOf(Finding const& finding) {
  PathParts const& parts = finding.Parts();
  return {Cell(parts.name),       Cell(parts.extension),
          finding.Type(),         std::to_string(finding.Size()),
          finding.ChecksumText(), Cell(parts.folder)};
}

void PrintRow(Row const& row, std::vector<unsigned int> const& widths) {
  std::string line;
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (i != 0) line += "  ";
    std::string const padding = Padding(row[i], widths[i]);
    if (i == kSizeColumn) {
      line += padding + row[i];
    } else {
      line += row[i] + padding;
    }
  }
  line.erase(line.find_last_not_of(' ') + 1);
  std::printf("%s\n", line.c_str());
}

}  // namespace

void PrintGivenPath(std::string const& path) {
  CUSharedPtr<CUStringMac> const text = StringOf(path);
  if (text == nullptr) return;
  PathParts const parts = SplitPath(*text);
  std::printf("%s\n", VisibleText(path).c_str());
  std::printf("  components  %s\n", ComponentsText(*text).c_str());
  std::printf("  folder      %s\n", Cell(parts.folder).c_str());
  std::printf("  name        %s\n", Cell(parts.name).c_str());
  std::printf("  less ext.   %s\n", Cell(parts.nameNoExtension).c_str());
  std::printf("  extension   %s\n", Cell(parts.extension).c_str());
  std::printf("  drive       %s\n", DriveText(text).c_str());
}

void PrintOutput(CUSharedPtr<CUStringMac> path) {
  std::printf("output %s\n", Cell(path).c_str());
  std::printf("  drive       %s\n", DriveText(path).c_str());
}

void PrintTable(RunResult const& result, std::size_t failureCount) {
  std::vector<Row> rows = {{"Name", "Ext.", "Type", "Size", "FNV-1a", "Folder"}};
  for (unsigned int i = 0; i < result.findings->Count(); ++i) {
    CUSharedPtr<CUObject> const object = result.findings->ObjectAtIndex(i);
    auto const* const finding = dynamic_cast<Finding*>(object.Get());
    if (finding != nullptr) rows.push_back(RowOf(*finding));
  }

  // The last column needs no width, as nothing stands behind it.
  std::vector<unsigned int> widths(rows[0].size());
  for (Row const& row : rows) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) {
      widths[i] = std::max(widths[i], WidthOf(row[i]));
    }
  }
  std::printf("\n");
  for (Row const& row : rows) PrintRow(row, widths);
  std::printf("\nfiles %u, bytes %llu, links to folders not followed %lu, failures %zu\n",
              result.findings->Count(), result.bytes, result.linksToFolders, failureCount);
  if (result.output == nullptr) return;
  std::printf("files copied %u, bytes copied %llu, to %s\n", result.filesCopied, result.bytesCopied,
              Cell(result.output).c_str());
}
