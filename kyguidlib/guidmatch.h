// Whether a stored identity still belongs to this machine: the key searches
// and the decision table, without any system access. The builder supplies
// the facts; the one fact that needs the system (whether WMI still knows
// the stored adapter) is asked only when its row is reached.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "kyguidlib/hwrecords.h"

namespace KyGuid {

// Index of the present disk that carries the stored disk key, or -1: an
// exact pass over the keys, then a pass that finds a disk by its serial
// alone, so a model string changed by a driver update still matches.
int FindDiskByKey(const std::vector<DiskInfo>& disks, const std::string& key);
// Index of the first adapter whose key equals `key` byte for byte, or -1.
int FindAdapterByKey(const std::vector<AdapterInfo>& adapters, const std::string& key);

struct MatchFacts {
  const DiskInfo* matchedDisk = nullptr;        // present disk bound to the record
  const AdapterInfo* matchedAdapter = nullptr;  // present adapter bound to the record
  bool anyDisk = false;
  bool anyAdapter = false;
  bool recordHasGuid = false;
};

struct MatchDecision {
  int row;              // 1-11, top to bottom
  bool keep;            // keep the GUID in force, or build a new one
  const char* message;  // logged for every row but the first; null there
};

MatchDecision DecideMatch(const MatchFacts& facts, const std::function<bool()>& adapterKnownToWmi);

// The adapter's GUID name from a detail text: what follows "Guid:{" up to
// the next "}"; empty when there is none.
std::string GuidNameFromDetail(const std::string& detail);

}  // namespace KyGuid
