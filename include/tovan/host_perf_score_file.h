// host_perf_score_file.h: CHostPerfScoreFile, one number for this host's processing power, to compare the hosts of a
// cluster by: the clock in GHz x the number of processors x a weight of the processor's type.
//
// The weights are the entry "CPUTypes" of the section "hostperfscore" of the shared configuration file, where they can
// be tuned; docs/config-file.md describes it. Entries of other names are the clients' own and kept as they are, if they
// are dictionaries: any other value in the section is not loaded, and flush() leaves it out.
//
// Failures of the file are those of the base class. The score itself never throws: what the host does not tell is said
// in a console line, and shows in the number. Threads: one object belongs to one thread at a time.
#pragma once

#include <plinth/string.h>
#include <tovan/property_list_file.h>

namespace tovan {

// A named dictionary; a value: a copy has a dictionary of its own.
class TOVAN_EXPORT CHostPerfScoreEntry {
 public:
  // Neither name nor dictionary.
  CHostPerfScoreEntry();
  // The dictionary is copied. It may be null: an entry without a dictionary is not written.
  CHostPerfScoreEntry(CFStringRef name, CFDictionaryRef dictionary);
  CHostPerfScoreEntry(const CHostPerfScoreEntry&);
  CHostPerfScoreEntry& operator=(const CHostPerfScoreEntry&);
  ~CHostPerfScoreEntry();

  // Keeps a mutable copy; null takes the dictionary away. The name stays.
  void fromDict(CFDictionaryRef dictionary);
  // The entry's own dictionary, null when it has none: what the caller changes in it changes the entry.
  plinth::CSharedCFRef<CFMutableDictionaryRef> toDict() const;

  // Belongs to the entry; null when it has none.
  CFStringRef name() const noexcept { return name_.get(); }
  // Null clears.
  void setName(CFStringRef name);

 private:
  plinth::CSharedCFRef<CFStringRef> name_;
  plinth::CSharedCFRef<CFMutableDictionaryRef> dictionary_;
};

// The entry "CPUTypes", and the factors of the score of the host that asks. In its dictionary "Current" is the type to
// use ("RuntimeCheck", or no string: the host's own), "Default" the weight of types that have none, and every other key
// a type with its weight. Every factor is looked at anew with each call.
class TOVAN_EXPORT CCPUTypePerfScoreEntry : public CHostPerfScoreEntry {
 public:
  using CHostPerfScoreEntry::CHostPerfScoreEntry;

  // cpuClockSpeed() x numCPUs() x cpuTypeScore(). Negative on a host that does not tell its clock: a cluster then
  // prefers every host that does.
  double cpuPerfScore() const;

  // The processors that are on line. On a host that does not tell: "Error: sysctlbyname(hw.ncpu) failed." on the
  // console, and 4294967295, the failed call's -1.
  unsigned int numCPUs() const;
  // In GHz: the highest clock that a processor has at this moment, raised to the host's reported minimum and lowered to
  // its reported maximum where it reports them. On a host that does not tell its clock (many ARM boards and virtual
  // machines): "Error: sysctlbyname(hw.cpufrequency) failed." on the console, and -1.
  double cpuClockSpeed() const;
  // The type that "Current" names, else that of this host: "Intel X86" for an x86 processor of any maker, by its family
  // "Intel Core", "Intel Core 2" or, when its brand text says so, "Intel Core Xeon"; "Default" for any other processor,
  // and, with "Error: host_info() failed." on the console, when the host does not tell. Never null.
  plinth::CSharedCFRef<CFStringRef> cpuType() const;
  // The weight of a type. For one without a weight of its own:
  // "CCPUTypePerfScoreEntry::cpuTypeScore: unknown CPU type "TYPE"." on the console, and the number of "Default", 1.0
  // when there is none. What is no number is no weight.
  double cpuTypeScore(CFStringRef type) const;
  // That of cpuType().
  double cpuTypeScore() const;

  // The name that this host's processor gives itself; the empty string when it does not tell.
  static plinth::CStringRef cpuBrand();
};

extern template class CPropertyListFile<CHostPerfScoreEntry>;

class TOVAN_EXPORT CHostPerfScoreFile : public CPropertyListFile<CHostPerfScoreEntry> {
 public:
  // Reads the shared configuration file, kHostPerfScoreFilePath.
  CHostPerfScoreFile();
  // Reads the file at a path; a leading "~/" is expanded.
  explicit CHostPerfScoreFile(CFStringRef path);
  ~CHostPerfScoreFile() override;

  // Reads the file; without the section the entries stay as they are. True; a failure throws.
  bool refresh();
  // Writes the entries; all other sections of the file stay as they are there. While the lock is held they do not: see
  // the head of property_list_basic_file.h.
  void flush() const;

  // The entry "CPUTypes"; one without a name and a dictionary when there is none.
  CCPUTypePerfScoreEntry cpuTypes() const;
  // This host's score by the weights that were read: cpuTypes().cpuPerfScore().
  double cpuPerfScore() const;
};

}  // namespace tovan
