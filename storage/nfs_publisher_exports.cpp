// CNFSSharedStoragePublisher: reading, writing and changing the exports file.
#include <tovan/nfs_shared_storage_publisher.h>

#include <tovan/cf_util.h>

#include <plinth/exception.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <string>
#include <utility>

#include "platform/system/folder_turn.h"
#include "storage/exports_file.h"
#include "storage/exports_lines.h"
#include "storage/nfs_publisher_change.h"
#include "storage/path_bytes.h"

namespace tovan {

using plinth::CString;
using plinth::CStringRef;

namespace {

std::string textOfFile(const CStringRef& path) {
  const auto failed = [&path](int error, const char* reason) {
    return plinth::CNSException(error,
                                "CNFSSharedStoragePublisher::readExportFile(): couldn't read file \"%@\", error = %s",
                                path->getStringRef(), reason);
  };
  try {
    return ExportsFile(pathBytes(path)).read();
  } catch (const ExportsFileFailure& failure) {
    throw failed(failure.error(), failure.what());
  } catch (const std::exception& exception) {
    throw failed(ENOMEM, exception.what());
  }
}

[[noreturn]] void throwNotWritten(const CStringRef& path, int error, const char* reason) {
  const CStringRef line =
      CString::sprintf("CNFSSharedStoragePublisher::writeExportFile(%@): %s\n", path->getStringRef(), reason);
  CFUtil::LogToConsole(line->getUTF8Ptr());
  // The default path whatever file is set, on purpose.
  throw plinth::CException(plinth::kExceptionTypeUnknown, error,
                           "CNFSSharedStoragePublisher::writeExportFile(): couldn't write file \"/etc/exports\"");
}

std::string textOfLines(const ExportsLines& lines) {
  const bool isComplete =
      std::none_of(lines.begin(), lines.end(), [](const CStringRef& line) { return line.isNull(); });
  if (!isComplete) throw ExportsFileFailure(EINVAL, "a line is missing");
  std::string text = exportsText(lines);
  const auto lineFeeds = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  if (lineFeeds != lines.size()) throw ExportsFileFailure(EINVAL, "a line holds a line feed");
  return text;
}

}  // namespace

// The change that writeExportFile takes part in, for a scope.
class CNFSSharedStoragePublisher::ChangeScope {
 public:
  ChangeScope(Change*& current, Change& now) : current_(current), outer_(std::exchange(current, &now)) {}
  ~ChangeScope() { current_ = outer_; }
  ChangeScope(const ChangeScope&) = delete;
  ChangeScope& operator=(const ChangeScope&) = delete;

 private:
  Change*& current_;
  Change* outer_;
};

void CNFSSharedStoragePublisher::readExportFile(ExportsLines& lines) const {
  lines = exportsLines(textOfFile(exportsFilePath_));
}

void CNFSSharedStoragePublisher::writeExportFile(const ExportsLines& lines) const {
  try {
    const ExportsFile file(pathBytes(exportsFilePath_));
    std::string text = textOfLines(lines);
    if (change_ == nullptr) {
      file.replace(text, nullptr);
    } else if (file.replace(text, &change_->before)) {
      change_->before = std::move(text);
    } else {
      change_->isOvertaken = true;
    }
  } catch (const ExportsFileFailure& failure) {
    throwNotWritten(exportsFilePath_, failure.error(), failure.what());
  } catch (const std::exception& exception) {
    throwNotWritten(exportsFilePath_, ENOMEM, exception.what());
  }
}

CNFSSharedStoragePublisher::Change CNFSSharedStoragePublisher::readNow() const {
  std::string text = textOfFile(exportsFilePath_);
  ExportsLines lines = exportsLines(text);
  return {std::move(text), std::move(lines), false};
}

// Whoever changes the file at the same time is not overwritten: what they wrote is read, and the change made on that.
void CNFSSharedStoragePublisher::change(Change now, const std::function<void(const ExportsLines& lines)>& apply) {
  constexpr int kAttempts = 100;
  const platform::FolderTurn turn(ExportsFile(pathBytes(exportsFilePath_)).folder());
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (textOfFile(exportsFilePath_) != now.before) now = readNow();
    now.isOvertaken = false;
    const ChangeScope scope(change_, now);
    apply(now.lines);
    if (!now.isOvertaken) return;
  }
  throwNotWritten(exportsFilePath_, EAGAIN, "others change it all the time");
}

void CNFSSharedStoragePublisher::listFolder(Change known, const CStringRef& path) {
  change(std::move(known), [this, &path](const ExportsLines& lines) {
    // The path's line may be there without its line feed: as good as none to a reader that takes it for cut off.
    const bool hasCutOffLine =
        isCutOff(change_->before) && lineOf(lines, path) + 1 == static_cast<CFIndex>(lines.size());
    if (hasCutOffLine) writeExportFile(lines);
    _publish(path, lines);
  });
}

void CNFSSharedStoragePublisher::cleanExports() {
  change(readNow(), [this](const ExportsLines& lines) {
    ExportsLines rest = lines;
    for (std::size_t index = 0; index < rest.size();) {
      if (isMervaneExportEntry(rest[index])) {
        removeEntry(rest, index);
      } else {
        index = endOfEntry(rest, index);
      }
    }
    if (rest.size() != lines.size()) writeExportFile(rest);
  });
}

void CNFSSharedStoragePublisher::updateNFSDaemons() const {}

void CNFSSharedStoragePublisher::setExportsFilePath(const CStringRef& path) {
  if (path.isNull()) throw plinth::CNullPointerException("Error: path is null!");
  exportsFilePath_ = path;
}

}  // namespace tovan
