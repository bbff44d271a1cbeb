// The update's decision on records alone: for a stored record or an ancient
// GUID and the present devices, the result, the record put in force, what is
// saved, and which slow facts were asked.
#include <gtest/gtest.h>

#include <climits>

#include "common/md5.h"
#include "kyguidlib/guiddecision.h"

namespace {

using namespace KyGuid;

DiskInfo Disk(int index, const char* model, const char* serial, int score) {
  return DiskInfo{index, model, "R1", serial, "", 0, index == 0 ? DiskInfo::kBestDisk : 0, score};
}
AdapterInfo Nic(int index, const char* mac, uint32_t type) {
  return {index, "", mac, "", 0, type, 71, index == 0 ? AdapterInfo::kBestAdapter : 0};
}

const DiskInfo kDesk = Disk(0, "ST1000DM010", "Z9A1B2C3", 150);
const DiskInfo kVirtual = Disk(0, "VBOX HARDDISK", "VB01", 75);
const DiskInfo kSecond = Disk(1, "WD10EZEX", "WCC6", 40);
const AdapterInfo kPciNic = Nic(0, "001122aabbcc", 85);
const AdapterInfo kUsbNic = Nic(0, "001a2b3c4d5e", 6);
constexpr char kDeskKeys[] = "PID:{ST1000DM010}SN:{Z9A1B2C3}Mac:{001122aabbcc}";

class Facts : public IDecisionFacts {
 public:
  bool AdapterKnownToWmi(const GuidRecord&) override { return ++wmiAsked, false; }
  bool FindLegacyDisk(const std::string& guid, DiskInfo& disk) override {
    if (guid != CalcDiskGuid(legacy.ProductId, legacy.Revision, legacy.SerialNumber)) return false;
    disk = legacy;
    return true;
  }
  int32_t Now() override { return 1700000000; }

  int wmiAsked = 0;
  DiskInfo legacy = Disk(1, "  OLD", "  W1", 0);  // as only the legacy reads give it
};

struct Case {
  const char* name;
  const char* storedDiskKey;  // null: no record in force
  int32_t storedIndex;
  int storedVersion;
  std::vector<DiskInfo> disks;
  std::vector<AdapterInfo> adapters;
  int result;
  int32_t createIndex;
  int reason;
  UpdatePlan::Save save;
  int wmiAsked;
};

using Save = UpdatePlan::Save;
constexpr Save kNone = Save::kNothing, kBuild = Save::kBuild, kOld = Save::kBuildWithReplaced;
constexpr int kSame = kResultReplacedSameVersion, kOther = kResultReplacedOtherVersion;
constexpr char kDeskKey[] = "PID:{ST1000DM010}SN:{Z9A1B2C3}";
constexpr char kVboxKey[] = "PID:{VBOX HARDDISK}SN:{VB01}";

const Case kCases[] = {
    {"Kept", kDeskKey, 3, 2, {kDesk}, {kPciNic}, kResultKept, 3, 0, kNone, 0},
    {"FirstBuild", nullptr, 0, 0, {kDesk, kSecond}, {kPciNic}, kResultFirstBuilt, 0, 0, kBuild, 0},
    {"RingRestartsAtIntMax", "gone", INT_MAX, 2, {kDesk}, {kUsbNic}, kSame, 0, 3, kOld, 0},
    {"NegativeIndexCountsOn", "gone", -5, 2, {kDesk}, {kUsbNic}, kSame, -4, 3, kOld, 0},
    {"EarlierVersionReplaced", "gone", 4, 1, {kDesk}, {kUsbNic}, kOther, 5, 3, kOld, 0},
    {"BadDiskAdapterGoneAsksWmi", kVboxKey, 0, 2, {kVirtual}, {kUsbNic}, kSame, 1, 2, kOld, 1},
    {"NoHardwareKeepsTheGuidInForce", "gone", 0, 2, {}, {}, kResultKept, 0, 0, kNone, 0},
    {"NoHardwareNoGuid", nullptr, 0, 0, {}, {}, kResultBuildFailed, 0, 0, kNone, 0},
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

class DecisionTest : public ::testing::TestWithParam<Case> {};

TEST_P(DecisionTest, RecordInForce) {
  const Case& c = GetParam();
  StoredRecords stored;
  stored.hasActive = c.storedDiskKey != nullptr;
  if (stored.hasActive) {
    stored.active.Guid = KyGuidUtils::Md5Hex(c.name);
    stored.active.DiskKey = c.storedDiskKey;
    stored.active.AdapterKey = "Mac:{001122aabbcc}";
    stored.active.CreateIndex = c.storedIndex;
    stored.active.Version = c.storedVersion;
  }
  Facts facts;
  const UpdatePlan plan = DecideUpdate(stored, c.disks, c.adapters, facts);
  EXPECT_EQ(c.result, plan.result);
  EXPECT_EQ(c.save, plan.save);
  EXPECT_EQ(c.wmiAsked, facts.wmiAsked);
  if (c.result == kResultBuildFailed) {
    EXPECT_EQ(kSpecialGuid, plan.record.Guid);
    return;
  }
  EXPECT_EQ(c.createIndex, plan.record.CreateIndex);
  EXPECT_EQ(c.reason, plan.record.Reason);
  if (plan.save == Save::kNothing) {
    EXPECT_EQ(stored.active.Guid, plan.record.Guid);
    return;
  }
  EXPECT_EQ(KyGuidUtils::Md5Hex(plan.record.DiskKey + plan.record.AdapterKey), plan.record.Guid);
  EXPECT_EQ(1700000000, plan.record.CreateTime);
  EXPECT_TRUE(plan.disks[0].Has(DiskInfo::kGuidDisk));
  if (c.disks[0].Score == 150) {
    EXPECT_EQ(85, plan.record.Score);  // (100 + 71) / 2
  }
}

INSTANTIATE_TEST_SUITE_P(Decision, DecisionTest, ::testing::ValuesIn(kCases),
                         ::testing::PrintToStringParamName());

// An ancient GUID bound by its legacy values: the MAC's digest, the disk
// digest of a present disk or of a drive only the legacy reads see.
TEST(DecisionAncientTest, BindingAndWhatTheAdoptedRecordCarries) {
  constexpr int kAdopted = kResultAncientAdopted;
  const std::string kMacDigest = KyGuidUtils::Md5Hex("001122aabbcc");
  const std::string kDeskDigest = CalcDiskGuid("ST1000DM010", "R1", "Z9A1B2C3");
  const std::string kOldDigest = CalcDiskGuid("  OLD", "R1", "  W1");
  constexpr char kSecondKeys[] = "PID:{WD10EZEX}SN:{WCC6}Mac:{001122aabbcc}";
  struct {
    std::string mac, disk;
    std::vector<DiskInfo> disks;
    int result, reason;
    const char* keys;
  } const cases[] = {
      {kMacDigest, "none", {kDesk}, kAdopted, kReasonDiskLost, kDeskKeys},
      {"none", kDeskDigest, {kDesk}, kAdopted, kReasonAdapterLost, kDeskKeys},
      {"none", kOldDigest, {kDesk, kSecond}, kAdopted, kReasonAdapterLost, kSecondKeys},
      // A drive the legacy reads bind but no present disk is: the best one
      // stands in, the half counts as lost, and yet the GUID is adopted.
      {"none", kOldDigest, {kDesk}, kAdopted, 3, kDeskKeys},
      {"none", "none", {kDesk}, kResultReplacedOtherVersion, 3, kDeskKeys},
      {"none", "none", {}, kAdopted, 3, "noneMac:{001122aabbcc}"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.keys);
    StoredRecords stored;
    stored.hasAncient = true;
    stored.ancient.Guid = "feedfacefeedfacefeedfacefeedface";
    stored.ancient.AdapterKey = c.mac;
    stored.ancient.DiskKey = c.disk;
    Facts facts;
    const UpdatePlan plan = DecideUpdate(stored, c.disks, {kPciNic}, facts);
    EXPECT_EQ(c.result, plan.result);
    EXPECT_TRUE(plan.fromAncient);
    EXPECT_EQ(Save::kBuildWithReplaced, plan.save);
    EXPECT_EQ(c.reason, plan.record.Reason);
    EXPECT_EQ(c.keys, plan.record.DiskKey + plan.record.AdapterKey);
    if (!(c.reason & kReasonDiskLost)) {  // the replaced record is bound to the same disk
      EXPECT_EQ(plan.record.DiskKey, plan.replaced.DiskKey);
    }
    EXPECT_EQ(kAncientVersion, plan.replaced.Version);
    EXPECT_EQ(kCurrentVersion, plan.record.Version);
    const bool adopted = c.result == kResultAncientAdopted;
    EXPECT_EQ(adopted, plan.record.Guid == stored.ancient.Guid);
    EXPECT_EQ(adopted ? -1 : 0, plan.record.CreateIndex);  // -1: outside the ring
  }
}

}  // namespace
