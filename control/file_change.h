// file_change.h: changing one entry of a section of the configuration file, without losing what others change.
#pragma once

#include <tovan/property_list_basic_file.h>

namespace tovan {

// Takes the exclusive lock and reads the entries again under it; unlock() or the end of the file object gives it back.
// A flush that finds the lock held writes the document in memory, and a refresh leaves just the section there, so the
// whole file is put back as the document.
template <class File>
void beginChange(File& file) {
  file.lockForRW();
  file.refresh();
  file.CPropertyListBasicFile::refresh();
}

}  // namespace tovan
