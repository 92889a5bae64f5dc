// path_watch.h: which of some paths exist, from moment to moment, through inotify on the folders above them. Folders
// that are missing, made again, moved or exchanged for links are followed; where a folder cannot be watched the paths
// are looked at once a second. A path exists when anything is there, a link to nowhere included.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "tools/launchctl/descriptor.h"

namespace launchctl {

class PathWatch {
 public:
  // What counts as a change: coming and going alone, or also another content, by a writer that closed the file or by a
  // file put in its place.
  enum class Tells { existence, contents };

  // Called after each change: the path, and whether it exists now. Changes that follow one another quickly are all
  // told. Where contents are told, a change that did not happen may be told as well.
  using Changed = std::function<void(const std::string& path, bool exists)>;

  explicit PathWatch(Tells tells = Tells::existence);

  // Replaces the set of absolute paths. What exists is looked up anew; nothing is told.
  void setPaths(const std::set<std::string>& paths);
  bool exists(const std::string& path) const;

  // Readable when there is something to handle.
  int descriptor() const { return inotify_.get(); }
  // Takes in what has happened. True when a folder above a path came or went: what came and went in it meanwhile may
  // not have been told.
  bool handle(const Changed& changed);
  // True when descriptor() does not tell everything: call handle() once a second as well.
  bool polls() const { return polls_; }

 private:
  void rebuild();
  void addFolder(const std::string& folder, const std::string& component);
  void look(const Changed& changed);

  Tells tells_;
  Descriptor inotify_;
  std::map<std::string, bool> paths_;
  std::map<std::string, std::set<std::string>> folders_;  // folder → the names in it that matter
  std::map<int, std::set<std::string>> watches_;          // watch → folders (links make several names of one)
  bool polls_ = false;
};

}  // namespace launchctl
