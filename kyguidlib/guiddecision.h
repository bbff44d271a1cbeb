// What an update decides, without touching the system: whether the record in
// force still belongs to this machine, whether an ancient GUID of the legacy
// scheme is adopted, or a new GUID is built from the best disk and adapter.
// The builder (cguidbuilder) gathers the stored records and the hardware,
// answers the facts the decision asks only when it reaches them, and hands
// the plan to the store.
#pragma once

#include <cstdint>
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

// What the store holds when an update starts: the record in force, or else
// the ancient GUID of the legacy scheme's cache (its id, with the digests of
// the MAC as AdapterKey and of the drive as DiskKey).
struct StoredRecords {
  bool hasActive = false;
  GuidRecord active;
  bool hasAncient = false;
  GuidRecord ancient;
};

// The facts the decision asks only when it reaches them: each costs the
// registry, WMI or device reads.
class IDecisionFacts {
 public:
  virtual ~IDecisionFacts() = default;
  // Whether WMI still knows the adapter of `record`, which no present
  // adapter carries.
  virtual bool AdapterKnownToWmi(const GuidRecord& record) = 0;
  // The drive that the legacy scheme's own reads identify by `diskGuid`
  // (its Index the drive number); false when none does.
  virtual bool FindLegacyDisk(const std::string& diskGuid, DiskInfo& disk) = 0;
  // Seconds since 1970, the time of a record made now.
  virtual int32_t Now() = 0;
};

struct UpdatePlan {
  enum class Outcome { kKept, kBuilt, kAdopted, kNothingBuilt };
  // What the store saves: nothing, or the record in force with its build
  // section, the replaced record in it as "Old" or not.
  enum class Save { kNothing, kBuild, kBuildWithReplaced };

  int result = kResultBuildFailed;
  Outcome outcome = Outcome::kNothingBuilt;
  Save save = Save::kNothing;
  bool fromAncient = false;              // the record found in force is the legacy scheme's
  GuidRecord record;                     // in force after the update
  GuidRecord replaced;                   // found in force, bound to the present devices
  MatchDecision row{0, false, nullptr};  // row 0: the matching table was not used
  std::vector<DiskInfo> disks;           // marked GuidDisk and GuidAdapter where
  std::vector<AdapterInfo> adapters;     // the record was built from them
};

UpdatePlan DecideUpdate(const StoredRecords& stored, std::vector<DiskInfo> disks,
                        std::vector<AdapterInfo> adapters, IDecisionFacts& facts);

// The record a new build makes of the present hardware after `active`; false,
// with the special GUID in `out`, when there is neither disk nor adapter.
bool BuildBestGuid(const std::vector<DiskInfo>& disks, const std::vector<AdapterInfo>& adapters,
                   const GuidRecord& active, int32_t now, GuidRecord& out);

// Devices by Index; null when below 0 or absent.
const DiskInfo* FindDisk(const std::vector<DiskInfo>& disks, int index);
const AdapterInfo* FindAdapter(const std::vector<AdapterInfo>& adapters, int index);

}  // namespace KyGuid
