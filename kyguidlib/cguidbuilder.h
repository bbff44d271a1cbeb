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

class CGuidBuilder {
 public:
  CGuidBuilder() = default;

  void Reset();
  void SetSave(bool save) { m_save = save ? 1 : 0; }

  // The whole run: fetch, load, match, keep/adopt/build, save.
  int UpdateNewGuid();
  // The "build a new GUID" branch: -1, 0, 1, 3 or 4.
  int BuildNewGuid();
  // A GUID from the best disk and adapter; FALSE (with the special GUID in
  // `out`) when there is neither.
  int BuildBestGuid(GuidRecord& out) const;
  void CalcScore(GuidRecord& record) const;
  void SaveNewGuid();
  // Reads "config1".."config3" of an earlier scheme's GlobalMgr.db.
  int LoadAncientGuidInfo(const std::string& path, GuidRecord& out);
  // Adopts the ancient GUID after DeepMatchAncientGuid bound it; result 2.
  int UpdateGuidByAncient();

  // Matching of a stored identity against the present hardware.
  int MatchGuidInfo(GuidRecord& record);
  int FindDiskByKey(const std::string& key) const;
  int FindAdapterInWmi(const GuidRecord& record) const;
  void DeepMatchAncientGuid(GuidRecord& record);
  int MatchAncientGuidInfo();

  // Refreshes the earlier scheme's files and writes the current GUID back
  // into them, after a saving update.
  void GetSequenceID();

  const GuidRecord& NewInfo() const { return m_newInfo; }
  const GuidRecord& ActiveInfo() const { return m_activeInfo; }
  const std::vector<DiskInfo>& Disks() const { return m_disks; }
  const std::vector<AdapterInfo>& Adapters() const { return m_adapters; }
  const std::string& AncientGuid() const { return m_ancientGuid; }
  // The table row that the last MatchGuidInfo applied (row 0: none yet).
  const MatchDecision& LastMatch() const { return m_lastMatch; }

  // Devices of this run by Index; null when below 0 or absent.
  const DiskInfo* FindDisk(int index) const;
  const AdapterInfo* FindAdapter(int index) const;

 private:
  void FetchHardware();
  bool LoadAncientRecord();
  void MarkGuidDevices(int diskIndex, int adapterIndex);
  void SaveBuild(bool saveReplaced);
  int FirstBestDiskIndex() const;
  int FirstBestAdapterIndex() const;
  // The earlier scheme's own disk reads, for an ancient disk value that no
  // present disk reproduces.
  bool DeepMatchLegacyDisk(GuidRecord& record);
  // The earlier scheme's disk GUID of three identity strings (logged).
  static std::string AncientDiskGuid(const std::string& productId, const std::string& revision,
                                     const std::string& serialNumber);
  void BindDisk(GuidRecord& record, const DiskInfo& disk) const;

  std::vector<DiskInfo> m_disks;
  std::vector<AdapterInfo> m_adapters;
  GuidRecord m_newInfo;
  GuidRecord m_activeInfo;
  int m_save = 0;
  std::string m_ancientGuid;
  MatchDecision m_lastMatch{0, false, nullptr};
};

}  // namespace KyGuid
