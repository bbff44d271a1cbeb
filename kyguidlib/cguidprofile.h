// Loads and saves the records of Guid.db (its layout: guiddbfile.h). Objects
// are short-lived; each one makes sure the data folder exists.
#pragma once

#include <string>
#include <vector>

#include "kyguidlib/guidrecord.h"
#include "kyguidlib/hwrecords.h"

namespace KyGuid {

class CGuidProfile {
 public:
  CGuidProfile();

  const std::string& Path() const { return m_path; }

  // Reads "ActiveGuid"; FALSE (and `out` untouched) unless "Guid" holds
  // exactly 32 hexadecimal digits.
  int LoadGuidInfo(GuidRecord& out) const;

  // Writes the ten stored keys, each name prefixed with `keyPrefix` (null for
  // none). A failed first write is logged and ends the save of this record.
  void SaveGuidInfo(const std::string& section, const GuidRecord& record,
                    const char* keyPrefix) const;

  // The present devices of a build, as "DiskCount"/"Disk%u" and
  // "AdapterCount"/"Adapter%u" detail texts. Entries of an earlier, longer
  // list stay in the section; readers go by the count. FALSE when the count
  // could not be written.
  int SaveDiskList(const std::string& section, const std::vector<DiskInfo>& disks) const;
  int SaveAdapterList(const std::string& section, const std::vector<AdapterInfo>& adapters) const;

  // One build as one step of the store: `record` in force, and in its
  // "Build%d" section `replaced` as "Old" (when given), `record` and the
  // present devices. A crash leaves the old record or the new one, never a
  // record without its keys.
  void SaveBuild(const GuidRecord& record, const GuidRecord* replaced,
                 const std::vector<DiskInfo>& disks,
                 const std::vector<AdapterInfo>& adapters) const;

  // The first adapter entry of the recent builds that contains `text`,
  // walking back from the active CreateIndex over at most five sections.
  std::string FindBuildAdapter(const std::string& text) const;

 private:
  std::vector<unsigned> AdapterEntryNumbers(const std::string& section, unsigned count,
                                            bool emptyText) const;

  std::string m_path;
};

}  // namespace KyGuid
