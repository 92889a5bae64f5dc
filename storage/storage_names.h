// storage_names.h: the names of the files that the storage puts into folders.
#pragma once

namespace tovan {

inline constexpr char kStorageInfoFileName[] = ".mervane.plist";
inline constexpr char kStorageInfoKey[] = "storage-uuid";
inline constexpr char kNeverIndexFileName[] = ".metadata_never_index";
inline constexpr char kSubexportFolderName[] = ".mvsubexp";
inline constexpr char kSubexportLockName[] = ".mvlock";
inline constexpr char kSubexportClient[] = "mvsubexp";
inline constexpr char kPortParameter[] = "port";

}  // namespace tovan
