// Decides, once per update run, which machine GUID is in force: keeps the
// stored one when the hardware still matches it, adopts the earlier
// scheme's ("ancient") GUID on a machine that has only that, or builds a new
// one from the best disk and the best adapter. Writes the outcome to Guid.db
// unless saving is off.
#pragma once

#include <string>
#include <vector>

#include "kyguidlib/guidmatch.h"
#include "kyguidlib/guidrecord.h"
#include "kyguidlib/hwrecords.h"

namespace KyGuid {

// Update results.
enum UpdateResult : int {
  kResultBuildFailed = -1,  // no hardware and no GUID in force
  kResultKept = 0,
  kResultFirstBuilt = 1,
  kResultAncientAdopted = 2,
  kResultReplacedSameVersion = 3,
  kResultReplacedOtherVersion = 4,
};

// Reason bits of a rebuilt record: which half of the old identity is gone.
constexpr int kReasonDiskLost = 1;
constexpr int kReasonAdapterLost = 2;

constexpr int kAncientVersion = 1;
constexpr int kCurrentVersion = 2;

constexpr char kSpecialGuid[] = "00000000000000000000000000000001";

// One builder serves one run: construct it (saving or not), run it, read
// what it found and decided.
class CGuidBuilder {
 public:
  // With `save` false the run computes but writes nothing to Guid.db.
  explicit CGuidBuilder(bool save);

  // The run: fetch, load, match, keep/adopt/build, save. Returns the update
  // result; the run happens once, later calls return the same result.
  int UpdateNewGuid();

  // The record put in force, and the one found in force at the start.
  const GuidRecord& NewInfo() const { return m_newInfo; }
  const GuidRecord& ActiveInfo() const { return m_activeInfo; }
  const std::vector<DiskInfo>& Disks() const { return m_disks; }
  const std::vector<AdapterInfo>& Adapters() const { return m_adapters; }
  // The table row that the matching applied (row 0: none, as on the
  // ancient path).
  const MatchDecision& LastMatch() const { return m_lastMatch; }
  // Devices of this run by Index; null when below 0 or absent.
  const DiskInfo* FindDisk(int index) const;
  const AdapterInfo* FindAdapter(int index) const;
  // The GUID the present hardware gives, whatever GUID is in force: the
  // record a new build would make (the special GUID when there is neither
  // disk nor adapter).
  GuidRecord BestGuid() const;

 private:
  int Run();
  void FetchHardware();
  bool LoadAncientRecord();
  // Reads "config1".."config3" of an earlier scheme's GlobalMgr.db.
  static int LoadAncientGuidInfo(const std::string& path, GuidRecord& out);

  // The "build a new GUID" branch: -1, 0, 1, 3 or 4.
  int BuildNewGuid();
  // A GUID from the best disk and adapter; FALSE (with the special GUID in
  // `out`) when there is neither.
  int BuildBestGuid(GuidRecord& out) const;
  void CalcScore(GuidRecord& record) const;
  void SaveNewGuid();
  void SaveBuild(bool saveReplaced);
  void MarkGuidDevices(int diskIndex, int adapterIndex);
  int FirstBestDiskIndex() const;
  int FirstBestAdapterIndex() const;

  // Matching of a stored identity against the present hardware.
  int MatchGuidInfo(GuidRecord& record);
  int FindAdapterInWmi(const GuidRecord& record) const;
  void DeepMatchAncientGuid(GuidRecord& record);
  // The earlier scheme's own disk reads, for an ancient disk value that no
  // present disk reproduces.
  bool DeepMatchLegacyDisk(GuidRecord& record);
  // Adopts the ancient GUID after DeepMatchAncientGuid bound it; result 2.
  int UpdateGuidByAncient();
  int MatchAncientGuidInfo();
  // The earlier scheme's disk GUID of three identity strings (logged).
  static std::string AncientDiskGuid(const std::string& productId, const std::string& revision,
                                     const std::string& serialNumber);
  void BindDisk(GuidRecord& record, const DiskInfo& disk) const;

  const bool m_save;
  bool m_ran = false;
  int m_result = kResultBuildFailed;
  std::vector<DiskInfo> m_disks;
  std::vector<AdapterInfo> m_adapters;
  GuidRecord m_newInfo;
  GuidRecord m_activeInfo;
  MatchDecision m_lastMatch{0, false, nullptr};
};

}  // namespace KyGuid
