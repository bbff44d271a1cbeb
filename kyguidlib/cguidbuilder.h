// The shell around an update's decision (guiddecision.h): it fetches the
// disks and adapters, loads the record in force or else the ancient GUID of
// the legacy scheme, answers the facts the decision asks as it goes (WMI, the
// Build history, the legacy scheme's own disk reads), and hands the plan to
// the store. One builder serves one run.
#pragma once

#include <string>
#include <vector>

#include "kyguidlib/guiddecision.h"

namespace KyGuid {

class CGuidBuilder {
 public:
  // An update: decides, saves the plan as one step of the store and logs
  // what it did. Returns the update result.
  int UpdateNewGuid();
  // The same decision and the same log lines, with nothing saved: what
  // explain and BuildGuidNow show.
  int DecideNewGuid();

  const UpdatePlan& Plan() const { return m_plan; }
  // The record put in force, and the one found in force at the start.
  const GuidRecord& NewInfo() const { return m_plan.record; }
  const GuidRecord& ActiveInfo() const { return m_plan.replaced; }
  const std::vector<DiskInfo>& Disks() const { return m_plan.disks; }
  const std::vector<AdapterInfo>& Adapters() const { return m_plan.adapters; }
  const MatchDecision& LastMatch() const { return m_plan.row; }
  const DiskInfo* FindDisk(int index) const { return KyGuid::FindDisk(m_plan.disks, index); }
  const AdapterInfo* FindAdapter(int index) const {
    return KyGuid::FindAdapter(m_plan.adapters, index);
  }
  // The GUID the present hardware gives, whatever GUID is in force (the
  // special GUID when there is neither disk nor adapter).
  GuidRecord BestGuid() const;

 private:
  void Decide();
  void LogOutcome() const;

  bool m_decided = false;
  UpdatePlan m_plan;
};

}  // namespace KyGuid
