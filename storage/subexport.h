// subexport.h: exporting one file by itself.
//
// The file gets a second name (a hard link) in the folder ".mvsubexp" beside it, and that folder is published. Making
// and removing links happens under a lock in the file ".mvlock" beside the folder; as that file's name goes at once
// (platform/system/transient_lock.h) the lock keeps only those apart who ask at the same moment, and links are made so
// that they never replace one another.
#pragma once

#include <plinth/exception.h>
#include <plinth/url.h>
#include <tovan/shared_storage_utils.h>

#include "storage/storage_names.h"

namespace tovan {

struct Subexport {
  plinth::CURLRef folder;  // what is published
  plinth::CURLRef link;    // the file's name in it
};

// Makes the link, and the folder (0777) when there is none. A name that is taken gets six characters before its
// extension. Throws ISharedStorageException type 3, sub-code 2, "Non-existent path = [URL]" for a URL of another scheme
// than "file" or of another host; type 3, sub-code 0, with the text "ExFATExportNotSupported" of the
// library's bundle, what CSharedStorageUtils::getFilesystemType, normalizedURL and makeDir throw, and CException type
// 4: "Couldn't create lock file: PATH (errno = NUMBER)", "mktemp(TEMPLATE) failed: REASON" and "Source subexp
// link(FILE, LINK) failed: REASON".
Subexport makeSubexport(const plinth::CURLRef& file);

// Removes the link; one that is gone already is no failure. Throws ISharedStorageException type 3, sub-code 0,
// "Couldn't remove subexp link: PATH (REASON)", also for a URL that names no file in a ".mvsubexp" folder, and
// "Couldn't create lock file: ..." as makeSubexport does, and type 3, sub-code 6, "Path [PATH] not a directory" when
// the folder is none.
void removeSubexportLink(const plinth::CURLRef& link);

// Removes the folder of a link, with the storage's own two files in it, unless another link is there. Throws
// ISharedStorageException type 3, sub-code 0, "Couldn't remove subexp directory: PATH (REASON)".
void removeSubexportFolder(const plinth::CURLRef& link);

// The folder in which a link lies, as its URL; the link's query does not go with it.
plinth::CURLRef subexportFolderOf(const plinth::CURLRef& link);

// Makes a sub-export of the file and publishes it through an ISharedStoragePublisher. Gives the link's URL with the
// server's port as its parameter "port". When that fails nothing stays published, and the link goes again.
template <class Publisher>
plinth::CURLRef beginSubexport(const plinth::CURLRef& file, Publisher& publisher) {
  const Subexport made = makeSubexport(file);
  bool isPublished = false;
  try {
    publisher.publish(made.folder, plinth::CSTR(kSubexportClient), 0);
    isPublished = true;
    made.link->setParameterValue(plinth::CSTR(kPortParameter), plinth::CString::fromInt(publisher.getServerPort()));
  } catch (...) {
    // What went wrong first is what the caller hears of.
    try {
      removeSubexportLink(made.link);
    } catch (const plinth::CException&) {
    }
    try {
      if (isPublished) publisher.unpublish(made.folder, plinth::CSTR(kSubexportClient), 0);
    } catch (const plinth::CException&) {
    }
    throw;
  }
  return made.link;
}

// Undoes one beginSubexport, given what it returned: removes the link, so that the file is out of reach whatever
// happens next, then gives back the reference to the published folder, and then, if `removesFolder`, removes the folder
// when no other link is in it. The reference is given back also when the link can't be removed, as when the folder it
// lay in is gone; what went wrong first is thrown then.
template <class Publisher>
void endSubexport(const plinth::CURLRef& link, bool removesFolder, Publisher& publisher) {
  const plinth::CURLRef folder = subexportFolderOf(link);
  try {
    removeSubexportLink(link);
  } catch (...) {
    try {
      publisher.unpublish(folder, plinth::CSTR(kSubexportClient), 0);
    } catch (const plinth::CException&) {
    }
    throw;
  }
  publisher.unpublish(folder, plinth::CSTR(kSubexportClient), 0);
  if (removesFolder) removeSubexportFolder(link);
}

}  // namespace tovan
