// file_change.h: changing a section of the configuration file without losing what others change meanwhile.
#pragma once

#include <tovan/property_list_basic_file.h>

namespace tovanctl {

// Takes the exclusive lock, which goes with the file object, and reads the section again under it. A flush that finds
// the lock held writes the document in memory, and a refresh leaves just the section there, so the whole file is put
// back as the document.
template <class File>
void beginChange(File& file) {
  file.lockForRW();
  file.refresh();
  file.CPropertyListBasicFile::refresh();
}

}  // namespace tovanctl
