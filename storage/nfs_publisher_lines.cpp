// CNFSSharedStoragePublisher: what the lines of the exports file mean to it.
#include <tovan/nfs_shared_storage_publisher.h>

#include <algorithm>

#include "storage/exports_lines.h"

namespace tovan {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

namespace {

// The line that names the path best, the first of them; -1 when none does. The caller says which of those with seven
// characters more will do.
template <class MayBeShared>
CFIndex bestLine(const ExportsLines& lines, const CStringRef& escapedPath, MayBeShared mayBeShared) {
  ExportsMatch best = ExportsMatch::none;
  CFIndex found = -1;
  for (std::size_t index = 0; index < lines.size() && best != ExportsMatch::exact; index = endOfEntry(lines, index)) {
    const ExportsMatch match = exportsMatch(*lines[index], escapedPath);
    if (match <= best || (match == ExportsMatch::shared && !mayBeShared(lines[index]))) continue;
    best = match;
    found = static_cast<CFIndex>(index);
  }
  return found;
}

}  // namespace

CFIndex CNFSSharedStoragePublisher::findExportEntry(const ExportsLines& lines, const CStringRef& path) const {
  return bestLine(lines, escapedFilePath(path), [this](const CStringRef&) { return !allLinesAreOurs_; });
}

// As findExportEntry, but of lines with seven characters more only those with "/shared", and none that is the line of
// another published folder: "film" and "film-backup" are not to stand for one another.
CFIndex CNFSSharedStoragePublisher::lineOf(const ExportsLines& lines, const CStringRef& path) const {
  return bestLine(lines, escapedFilePath(path), [this](const CStringRef& line) {
    return !allLinesAreOurs_ && line->endsWith(CSTR("/shared")) && !isPublished(line);
  });
}

bool CNFSSharedStoragePublisher::isPublished(const CStringRef& line) const {
  return std::any_of(publishedMap_.begin(), publishedMap_.end(),
                     [this, &line](const auto& published) { return escapedFilePath(CSTR(published.first)) == line; });
}

// ExportsLines that say exactly the same are one export, and go together. False when there is none.
bool CNFSSharedStoragePublisher::removeLine(ExportsLines& lines, const CStringRef& path) const {
  const CFIndex index = lineOf(lines, path);
  if (index < 0) return false;
  const CStringRef line = lines[static_cast<std::size_t>(index)];
  removeEntry(lines, static_cast<std::size_t>(index));
  if (line != escapedFilePath(path)) return true;
  for (CFIndex same = lineOf(lines, path); same >= 0; same = lineOf(lines, path)) {
    if (lines[static_cast<std::size_t>(same)] != line) break;
    removeEntry(lines, static_cast<std::size_t>(same));
  }
  return true;
}

bool CNFSSharedStoragePublisher::isMervaneExportEntry(const CStringRef& line) const {
  if (line.isNull() || line->isEmpty()) return false;
  return allLinesAreOurs_ || namesStorage(*line);
}

CStringRef CNFSSharedStoragePublisher::escapedFilePath(const CStringRef& path) const {
  return CString::nullToEmptyString(path)->shellEscapedFilename();
}

void CNFSSharedStoragePublisher::setAllLinesAreOurs(bool allLinesAreOurs) { allLinesAreOurs_ = allLinesAreOurs; }

}  // namespace tovan
