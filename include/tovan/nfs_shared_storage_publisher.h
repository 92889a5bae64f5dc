// nfs_shared_storage_publisher.h: CNFSSharedStoragePublisher, which publishes folders by listing them in the NFS
// server's exports file.
//
// The file is text: one line for each folder, its path as one shell word (plinth::CString::shellEscapedFilename) and
// nothing else. The server notices a change by itself; which hosts may mount what, and how, is not written there. Lines
// that are not the publisher's stay as they are, in their order and byte by byte, whatever encoding and line ends they
// have; only a last line without its line feed gets one when the file is written. A line that ends in an unescaped
// backslash goes on in the next one: the two are one entry, found, kept and removed together, and nothing is ever
// appended to it.
//
// A folder's line and its entry in the published map may differ, since others may edit the file and it outlives the
// process. publish() writes a line that has gone once more, and then starts counting afresh; unpublish() takes a line
// down that is left from an earlier run.
//
// Writing. The new text is written beside the file and takes its place in one step: a reader sees the old text or the
// new one, and a full disk, a file-size limit or a killed writer leaves the old one. Permissions and owner stay; a new
// file gets 0644 less the process's mask. A symbolic link is followed, so the file that it leads to is replaced. A file
// that the process may not write is left alone even where its folder would let it be replaced.
//
// Several writers. publish, unpublish, processTerminated and cleanExports read the file at the moment they change it.
// Processes that use this class take turns (a lock on the file's folder; one that does not give it back is waited for a
// second). Others, such as an editor, don't know of turns: just before the new text takes its place the file is
// compared with what was read, and when it differs the change is made anew on what it now holds. An editor that wrote
// back what it read before a publish() would take the line off; the next publish() of the folder puts it back.
//
// Paths. Only what comes back from the file as exactly the same path is published: absolute, without a line feed, an
// empty, "." or ".." component, and not the root folder. Others are refused before anything is made or written.
//
// One thread at a time; the caller takes care of that. The objects are counted: hold them in a
// CNFSSharedStoragePublisherRef.
#pragma once

#include <tovan/export.h>
#include <tovan/shared_storage.h>
#include <tovan/shared_storage_entries.h>

#include <plinth/shared_object.h>
#include <plinth/string.h>
#include <plinth/url.h>

#include <CoreFoundation/CFBase.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace tovan {

class TOVAN_EXPORT CNFSSharedStoragePublisher : public ISharedStoragePublisher {
 public:
  // With nothing published; the exports file is "/etc/exports".
  CNFSSharedStoragePublisher();

  // Publishes the folder of a file URL. One that is published and has its line gets a reference more; else the folder
  // is made when it is missing (0777), gets the storage information file (shared_storage_utils.h) with the client's
  // name, and its line. Gives 0. Throws:
  // - CNullPointerException "Error: url is null!" or "Error: client is null!", and CParamException for a client of a
  //   name that can't hold a reference (shared_storage_entries.h);
  // - ISharedStorageException type 3: sub-code 2, "Non-existent path = [URL]" for a URL that names no local path;
  //   sub-code 0, "Path [PATH] can't be published: REASON", and with the text "ExFATExportNotSupported" of the
  //   library's bundle, which names the folder (of a ".mvsubexp" folder the one above it);
  // - what CSharedStorageUtils::makeDir, addSharedInfoFile and isExFATBasedPath, readExportFile and writeExportFile
  //   throw.
  // Nothing is published then.
  OSStatus publish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override;
  // Gives one reference back; with the last one the entry goes, and the line. A folder that has a line but no entry
  // loses the line. Throws ISharedStorageException type 3, sub-code 2, "entry [PATH] not present in publishedMap" for a
  // folder that has neither, and as publish does for the URL, the client and the file. When the file can't be written
  // the entry is gone all the same, and unpublishing once more takes the line off.
  void unpublish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override;
  // -1: the NFS server has no port of its own here.
  std::int32_t getServerPort() override;
  // Has every entry drop what the process held, and takes down those that are left without references. An entry that
  // has clients drops nothing (CSharedStoragePublishedEntry::deleteReferences). Throws as readExportFile and
  // writeExportFile do; the entries are gone all the same.
  void processTerminated(long pid) override;
  CSharedStoragePublishedMap getPublishedMap() const override;

  // What publish and unpublish do to the file, given its lines; a subclass may do something else in their place. The
  // lines may be handed over again when another writer came in between.
  // Lists the path unless it has a line.
  virtual void _publish(const plinth::CStringRef& path, const std::vector<plinth::CStringRef>& lines);
  // Take the paths' lines off. Where there is none, nothing is written.
  virtual void _unpublish(const plinth::CStringRef& path, const std::vector<plinth::CStringRef>& lines);
  virtual void _unpublish(const std::vector<plinth::CStringRef>& paths, const std::vector<plinth::CStringRef>& lines);

  // The lines of the exports file without their line feeds, empty ones included; none when there is no file. A byte
  // that is not UTF-8 stands in its line as the code unit U+DC80 to U+DCFF, which no text has, and is written as that
  // byte again. Throws plinth::CNSException
  // "CNFSSharedStoragePublisher::readExportFile(): couldn't read file "PATH", error = REASON", with errno, when the
  // file can't be read, is no regular file, is a link that leads nowhere, or is larger than 8 MiB.
  void readExportFile(std::vector<plinth::CStringRef>& lines) const;
  // Replaces the file's content by these lines, each ended by a line feed. Throws plinth::CException type 255
  // "CNFSSharedStoragePublisher::writeExportFile(): couldn't write file "/etc/exports"", which names that path whatever
  // file is set, on purpose; a console line names the file and the reason. An empty holder and a line that holds a line
  // feed are refused in the same way, as are more than 8 MiB.
  void writeExportFile(const std::vector<plinth::CStringRef>& lines) const;
  // The index of the line that exports the path, -1 when there is none. That is the escaped path alone; else with a
  // blank or tab behind it; else, unless all lines are ours, with any seven characters behind it, as many as "/shared"
  // has. A line that continues another one is none of them. publish and unpublish are stricter with the last: there
  // the seven are "/shared", and a line that is just another published folder's is not taken for this one's.
  CFIndex findExportEntry(const std::vector<plinth::CStringRef>& lines, const plinth::CStringRef& path) const;
  // Whether a line is one of the system's own, whoever wrote it. An empty one is not. It is when all lines are ours,
  // when it holds "/.mvsubexp", and when it holds a storage folder's last two names: "/", eight hexadecimal digits,
  // "-", eight more, "/shared".
  bool isMervaneExportEntry(const plinth::CStringRef& line) const;
  // Removes every own line from the file, whether published or not; the published map stays. Throws as readExportFile
  // and writeExportFile do.
  void cleanExports();
  // Does nothing, on purpose: the server notices the file by itself.
  void updateNFSDaemons() const;
  // The path as it stands in the file. Throws as plinth::CString::shellEscapedFilename does.
  plinth::CStringRef escapedFilePath(const plinth::CStringRef& path) const;
  // The file to use from now on, which need not exist; no tilde in it is expanded. Its folder must exist when the file
  // is written. Throws CNullPointerException "Error: path is null!".
  void setExportsFilePath(const plinth::CStringRef& path);
  // Whether every line of the file counts as one of the system's own; false at first.
  void setAllLinesAreOurs(bool allLinesAreOurs);

 protected:
  ~CNFSSharedStoragePublisher() override;

  // For a subclass that keeps entries of its own making.
  CSharedStoragePublishedMap& publishedMap() noexcept { return publishedMap_; }

 private:
  struct Change;
  class ChangeScope;

  CFIndex lineOf(const std::vector<plinth::CStringRef>& lines, const plinth::CStringRef& path) const;
  bool isPublished(const plinth::CStringRef& line) const;
  bool removeLine(std::vector<plinth::CStringRef>& lines, const plinth::CStringRef& path) const;
  void listFolder(Change known, const plinth::CStringRef& path);
  Change readNow() const;
  void change(Change now, const std::function<void(const std::vector<plinth::CStringRef>& lines)>& apply);

  bool allLinesAreOurs_ = false;
  plinth::CStringRef exportsFilePath_;
  CSharedStoragePublishedMap publishedMap_;
  Change* change_ = nullptr;  // the one that is under way
};

using CNFSSharedStoragePublisherRef = plinth::CSharedObjectRef<CNFSSharedStoragePublisher>;

}  // namespace tovan
