// Lists the machine's physical disks (drives 0 to 15) with their identity
// strings, bus, removable and system flags and a score, and marks the best.
#pragma once

#include <vector>

#include "kyguidlib/hwrecords.h"

namespace KyGuid {

class CDiskFetcher {
 public:
  // Rebuilds the list; returns the number of disks.
  int Fetch();
  const std::vector<DiskInfo>& Disks() const { return m_disks; }

  // Marks the disks that hold volume `letter` as system disks; true when at
  // least one was marked.
  bool UpdateSystemMask(wchar_t letter);

 private:
  void Enumerate();
  bool FetchDisk(int drive, DiskInfo& disk);
  void LogDisks() const;

  std::vector<DiskInfo> m_disks;
};

}  // namespace KyGuid
