#include "kyguidlib/guiddbfile.h"

#include <cstdlib>
#include <iterator>

#include "common/profilefile.h"

namespace KyGuid {
namespace GuidDb {
namespace {

constexpr uint32_t kValueBuffer = 4096;

std::string Read(const std::string& path, const std::string& section, const std::string& key) {
  return KyGuidUtils::ReadIniString(path, section.c_str(), key.c_str(), kValueBuffer);
}

// Parsed here rather than by the profile functions, which may turn a negative
// value such as the ancient build number -1 into 0.
int ReadInt(const std::string& path, const std::string& section, const std::string& key,
            int defaultValue) {
  const std::string text = Read(path, section, key);
  char* end = nullptr;
  const long value = strtol(text.c_str(), &end, 10);
  return end == text.c_str() ? defaultValue : static_cast<int>(value);
}

}  // namespace

std::string BuildSection(int createIndex) {
  return "Build" + std::to_string(createIndex % kRingSize);
}

bool WriteRecord(const std::string& path, const std::string& section, const GuidRecord& record,
                 const std::string& prefix) {
  const std::string values[] = {record.Guid,
                                record.DiskKey,
                                record.DiskDetail,
                                record.AdapterKey,
                                record.AdapterDetail,
                                std::to_string(record.CreateIndex),
                                std::to_string(record.CreateTime),
                                std::to_string(record.Score),
                                std::to_string(record.Reason),
                                std::to_string(record.Version)};
  for (size_t i = 0; i < std::size(kRecordKeys); ++i) {
    const std::string key = prefix + kRecordKeys[i];
    const bool written = KyGuidUtils::WriteIniString(path, section.c_str(), key.c_str(), values[i]);
    if (i == 0 && !written) return false;
  }
  return true;
}

bool WriteList(const std::string& path, const std::string& section, const ListKeys& keys,
               const std::vector<std::string>& entries) {
  const std::string count = std::to_string(static_cast<unsigned>(entries.size()));
  if (!KyGuidUtils::WriteIniString(path, section.c_str(), keys.count, count)) return false;
  for (size_t i = 0; i < entries.size(); ++i) {
    const std::string key = keys.entry + std::to_string(static_cast<unsigned>(i));
    KyGuidUtils::WriteIniString(path, section.c_str(), key.c_str(), entries[i]);
  }
  return true;
}

GuidRecord ReadStoredRecord(const std::string& path, const std::string& section,
                            const std::string& prefix) {
  GuidRecord record;
  auto text = [&](const char* key) { return Read(path, section, prefix + key); };
  auto number = [&](const char* key, int defaultValue) {
    return ReadInt(path, section, prefix + key, defaultValue);
  };
  record.Guid = text(Key::Guid);
  record.DiskKey = text(Key::DiskKey);
  record.DiskDetail = text(Key::DiskDetail);
  record.AdapterKey = text(Key::AdapterKey);
  record.AdapterDetail = text(Key::AdapterDetail);
  record.CreateIndex = number(Key::CreateIndex, -1);
  record.CreateTime = number(Key::CreateTime, 0);
  record.Score = number(Key::Score, 0);
  record.Reason = number(Key::Reason, 0);
  record.Version = number(Key::Version, 0);
  return record;
}

std::vector<std::string> ReadList(const std::string& path, const std::string& section,
                                  const ListKeys& keys, unsigned maxEntries) {
  std::vector<std::string> entries;
  const int count = ReadInt(path, section, keys.count, 0);
  for (int i = 0; i < count && entries.size() < maxEntries; ++i) {
    entries.push_back(Read(path, section, keys.entry + std::to_string(i)));
  }
  return entries;
}

}  // namespace GuidDb
}  // namespace KyGuid
