// Guid.db, the file of the machine GUID: its one definition, which the
// library and the command line share.
//
//   [ActiveGuid]  the record in force: Guid, DiskKey, DiskDetail, AdapterKey,
//                 AdapterDetail, CreateIndex, CreateTime, Score, Reason, Version
//   [Build<n>]    a ring of the last five builds, n = CreateIndex % 5 with the
//                 dividend's sign, so an adopted ancient GUID (CreateIndex -1)
//                 builds into [Build-1]. Each holds the build's record, the
//                 record it replaced under the same keys prefixed "Old", and the
//                 devices present then: DiskCount with Disk0, Disk1, ... and
//                 AdapterCount with Adapter0, ... (detail texts). Entries beyond
//                 a count are left from an earlier, longer list.
//   [RandGuid]    Guid: the machine's random GUID, which reports carry
//
// Strings are stored as they are, integers in signed decimal, counts in
// unsigned decimal.
#pragma once

#include <string>
#include <vector>

#include "kyguidlib/guidrecord.h"

namespace KyGuid {
namespace GuidDb {

constexpr char kActiveSection[] = "ActiveGuid";
constexpr char kRandSection[] = "RandGuid";
constexpr char kReplacedPrefix[] = "Old";
constexpr int kRingSize = 5;
// The build sections that can be in use: [Build-1] to [Build4].
constexpr int kFirstBuildSection = -1;
constexpr int kLastBuildSection = kRingSize - 1;

// The record's keys, named as its fields.
namespace Key {
constexpr char Guid[] = "Guid";
constexpr char DiskKey[] = "DiskKey";
constexpr char DiskDetail[] = "DiskDetail";
constexpr char AdapterKey[] = "AdapterKey";
constexpr char AdapterDetail[] = "AdapterDetail";
constexpr char CreateIndex[] = "CreateIndex";
constexpr char CreateTime[] = "CreateTime";
constexpr char Score[] = "Score";
constexpr char Reason[] = "Reason";
constexpr char Version[] = "Version";
}  // namespace Key
// In the order they are written.
constexpr const char* kRecordKeys[] = {
    Key::Guid,        Key::DiskKey,    Key::DiskDetail, Key::AdapterKey, Key::AdapterDetail,
    Key::CreateIndex, Key::CreateTime, Key::Score,      Key::Reason,     Key::Version};

struct ListKeys {
  const char* count;
  const char* entry;  // followed by the entry's number
};
constexpr ListKeys kDiskList{"DiskCount", "Disk"};
constexpr ListKeys kAdapterList{"AdapterCount", "Adapter"};

std::string BuildSection(int createIndex);

// The ten keys under `prefix`; false, with nothing else written, when the
// first write failed.
bool WriteRecord(const std::string& path, const std::string& section, const GuidRecord& record,
                 const std::string& prefix);
// The count, then the entries; false, with no entry written, when the count
// could not be written.
bool WriteList(const std::string& path, const std::string& section, const ListKeys& keys,
               const std::vector<std::string>& entries);

// As stored: integers as written, a missing or unreadable one as its reset
// value. The library's own reading of the record in force is stricter
// (CGuidProfile::LoadGuidInfo).
GuidRecord ReadStoredRecord(const std::string& path, const std::string& section,
                            const std::string& prefix);
// At most `maxEntries`, whatever the count says.
std::vector<std::string> ReadList(const std::string& path, const std::string& section,
                                  const ListKeys& keys, unsigned maxEntries);

}  // namespace GuidDb
}  // namespace KyGuid
