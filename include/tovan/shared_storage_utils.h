// shared_storage_utils.h: CSharedStorageUtils, what the shared storage's publisher, subscriber and client have in
// common: the names and places of storage folders, the information file in every published folder, and questions about
// paths and the volumes they lie on.
//
// Layout of the storage:
//
//   BASE/BRIEF-ID/shared/                      a published or mounted storage folder
//     .mervane.plist                           the storage information file
//     .metadata_never_index                    an empty file that keeps desktop search away
//
// The information file is an XML property list: one dictionary with the one key "storage-uuid", a string, the
// identifier of whoever published the folder.
//
// Everything is stateless and may be called from any thread. Paths are UTF-8; no tilde in them is expanded, and an
// empty holder, or a text that holds U+0000, names no file. Failures are thrown as ISharedStorageException
// (shared_storage_exception.h); each operation names the type and sub-code of its own. What a
// question about the volume can throw, every operation that asks it throws as well.
#pragma once

#include <plinth/string.h>
#include <plinth/url.h>
#include <tovan/export.h>

#include <sys/types.h>

#include <vector>

namespace tovan {

class TOVAN_EXPORT CSharedStorageUtils {
 public:
  CSharedStorageUtils() = delete;

  // How long a storage request may take: 60 seconds.
  static double requestTimeout();
  // Serves the current thread's run loop in the default mode until that many seconds have passed. A loop with nothing
  // to serve is waited out all the same; only CFRunLoopStop ends the wait early. Zero, a negative number and NaN serve
  // what is ready and return.
  static void currentRunLoopRun(double seconds);

  // Names and places.

  // "PREFIX-HASH": up to eight leading characters of the identifier, ending before its first "-", and a hash of its
  // UTF-8 bytes in eight upper-case hexadecimal digits. For a UUID's text both are eight hexadecimal digits. An empty
  // identifier or holder gives "-00000000".
  static plinth::CStringRef briefUniqueID(const plinth::CStringRef& id);
  // The storage folder of an identifier below a base folder: normalizedURL(url), then the brief ID, then "shared". The
  // last two need not exist. Throws type 3, sub-code 6, "identifier [ID] can't name a folder" when the brief ID holds
  // a "/" or U+0000, which would lead elsewhere.
  static plinth::CURLRef publishedSharedURL(const plinth::CURLRef& url, const plinth::CStringRef& id);
  // The local folder on which the storage of an identifier is mounted, below
  // "/Users/Shared/Library/Application Support/Lumisphere/Storage/". Throws as publishedSharedURL does.
  static plinth::CURLRef subscribedSharedURL(const plinth::CStringRef& id);
  // The local folder for a remote storage URL. When the URL's path ends in a storage folder's names, BRIEF-ID/shared,
  // the local folder has the same brief ID; else its name is "url-HASH", the brief ID's hash of the URL's text without
  // its query. So the "port" parameter makes no difference. Throws CNullPointerException "Error: url is null!".
  static plinth::CURLRef subscribedSharedURL(const plinth::CURLRef& url);
  // The information file in subscribedSharedURL(id).
  static plinth::CURLRef sharedInfoURL(const plinth::CStringRef& id);
  // The folder "/tmp/mervane", storage that never leaves the host.
  static plinth::CURLRef localClusterStorageURL();
  // Whether the URL's file-system path is that one.
  static bool isLocalClusterStorageURL(const plinth::CURLRef& url);
  // Whether the URL's scheme is "kelp".
  static bool isKelpClusterStorageURL(const plinth::CURLRef& url);

  // The path with symbolic links and "." and ".." resolved. Throws type 5, sub-code 12,
  // "Couldn't get realpath for file: PATH (errno = NUMBER)" for a path that does not exist or can't be followed.
  static plinth::CStringRef normalizedPath(const plinth::CStringRef& path);
  // A file URL with its path normalized as by normalizedPath. Names at the end that do not exist yet are kept as they
  // are, so that the place of a folder yet to be made can be told. A relative path counts from the current folder. A
  // URL of another scheme than "file", or of another host, is given back as it is. Throws as normalizedPath does when
  // what exists can't be followed, and CNullPointerException "Error: url is null!".
  static plinth::CURLRef normalizedURL(const plinth::CURLRef& url);

  // Information files.

  // Writes the information file with that identifier into the folder of a file URL, in place, and beside it the empty
  // ".metadata_never_index" when there is none; both with permissions 0644. An information file that is there is
  // replaced, but nothing is written through a symbolic link or into anything but a regular file. That the marker can't
  // be written is no failure. Throws type 3: sub-code 6, "Path [PATH] not a directory"; sub-code 2,
  // "Non-existent path = [PATH]", also for a URL without a path that is UTF-8 (then its text stands for the path);
  // sub-code 5, "Path [PATH] not read/write"; sub-code 12, "Couldn't write info file [PATH]".
  static void addSharedInfoFile(const plinth::CURLRef& url, const plinth::CStringRef& id);
  // The same in the folder of spooled jobs, "jobs", below the URL's folder; makes that folder (0777) first.
  static void addJobsInfoFile(const plinth::CURLRef& url, const plinth::CStringRef& id);

  // Sub-exports: publishing one file by itself. They ask the storage's server (nfs_shared_storage.h, of the
  // notification type) as the client "mvsubexp", and wait for it on the calling thread's run loop; what a client throws
  // (dn_shared_storage_client.h) they throw as well.

  // Gives the file a second name (a hard link) in the folder ".mvsubexp" beside it, which is made (0777) when it is
  // missing, and publishes that folder. Where the file has a symbolic link in its place, it is the file behind it. A
  // name that is taken there gets six characters before its extension. Gives the link's file URL, with the server's
  // port as its parameter "port"; -1 when the server has no port of its own. Throws CNullPointerException "Error: url
  // is null!"; ISharedStorageException type 3, sub-code 2, "Non-existent path = [URL]" for a URL that names no file of
  // this host; type 3, sub-code 0, with the text "ExFATExportNotSupported" of the library's
  // bundle, and what getFilesystemType, normalizedURL and makeDir throw; CException type 4 "Couldn't create lock file:
  // PATH (errno = NUMBER)", "mktemp(TEMPLATE) failed: REASON" and "Source subexp link(FILE, LINK) failed: REASON". When
  // publishing fails the link is taken away again.
  static plinth::CURLRef beginSubexport(const plinth::CURLRef& url);
  // Undoes one beginSubexport, given what it gave: removes the link, so that the file is out of reach whatever happens
  // next (one that is gone already is no failure), then gives back the reference to the published folder, and then, if
  // `removesFolder`, removes the folder with the storage's own two files, when no other link is in it. Throws
  // ISharedStorageException type 3, sub-code 0, "Couldn't remove subexp link: PATH (REASON)", also for a URL that names
  // no file in a ".mvsubexp" folder, and "Couldn't remove subexp directory: PATH (REASON)"; and CException type 4
  // "Couldn't create lock file: PATH (errno = NUMBER)". Also then the reference is given back. Each end gives one back,
  // so end a sub-export once: a second end takes that of another file of the same folder.
  static void endSubexport(const plinth::CURLRef& url, bool removesFolder);

  // Volumes. The system's mount table answers, so that a file server that hangs holds nobody up: for a path on one,
  // only the volume is looked at, not whether the path exists.

  // The volume's file-system type, such as "ext4", "nfs" or "exfat". Throws type 5, sub-code 12,
  // "[PID] CSharedStorageUtils::getFilesystemType(): statfs(PATH) failed: REASON".
  static plinth::CStringRef getFilesystemType(const plinth::CStringRef& path);
  // Whether the type is "exfat", or "kcfs". Throw as getFilesystemType does.
  static bool isExFATBasedPath(const plinth::CStringRef& path);
  static bool isKelpBasedPath(const plinth::CStringRef& path);
  // Throws type 5, sub-code 12,
  // "[PID] CSharedStorageUtils::pathIsOnReadOnlyVolume(): statfs(PATH) failed: REASON".
  static bool pathIsOnReadOnlyVolume(const plinth::CStringRef& path);
  // For paths below "/Volumes/", existing or not: the volume's name, which is the next component; its path,
  // "/Volumes/NAME"; and whether a file system is mounted there. Other paths throw type 3, sub-code 2,
  // "Path [PATH] is not volume-based".
  static plinth::CStringRef getKelpVolumeName(const plinth::CStringRef& path);
  static plinth::CStringRef getKelpVolumePath(const plinth::CStringRef& path);
  static bool isVolumeMounted(const plinth::CStringRef& path);

  // Paths. These do ask the file system itself. Symbolic links are followed.

  // Whether the path names something. Throws nothing.
  static bool pathExists(const plinth::CStringRef& path);
  // Throws type 3, sub-code 2, "Non-existent path = [PATH]".
  static bool pathIsDirectory(const plinth::CStringRef& path);
  // What the caller may do; false for a path that names nothing. Throw nothing.
  static bool pathIsReadable(const plinth::CStringRef& path);
  static bool pathIsWritable(const plinth::CStringRef& path);
  static bool pathIsRW(const plinth::CStringRef& path);
  // The names in a folder in the order of their bytes, without "." and ".."; a name that is not UTF-8 is left out.
  // Throws as pathIsDirectory does, type 3, sub-code 6, "Path [PATH] not a directory", and type 5, sub-code 12,
  // "[PID] CSharedStorageUtils::getDirContents(): opendir(PATH) failed: REASON" (or readdir).
  static std::vector<plinth::CStringRef> getDirContents(const plinth::CStringRef& path);
  // Makes the folder, and those above it that are missing. The folder itself gets exactly this mode, whatever the
  // process's mask is; those above it that of any new folder. A folder that is there stays as it is. Throws type 3:
  // sub-code 5 with the text "WritePermissionsMissingForFolder" of the library's bundle, which names the folder that
  // may not be written into; sub-code 6 with "CreateDirectoryErrorFormat", which names the folder and the reason;
  // sub-code 6, "Path [PATH] not a directory" when something else is in its place, and "path not present: [PATH]"
  // when it is not there in spite of all.
  static void makeDir(const plinth::CStringRef& path, mode_t mode);
};

}  // namespace tovan
