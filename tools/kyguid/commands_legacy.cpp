// legacy: the legacy scheme's files in the data folder, which
// explain where an ancient GUID came from and what it will be bound by.
#include <algorithm>
#include <cstdio>
#include <vector>

#include "kyguidlib/globalmgrfile.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/hdddbfile.h"
#include "kyguidlib/td/guidinfo.h"
#include "kyguidlib/td/guidlist.h"
#include "tools/kyguid/cli.h"
#include "tools/kyguid/describe.h"
#include "tools/kyguid/inifile.h"

namespace KyGuidCli {
namespace {

namespace GlobalMgrKey = KyGuid::GlobalMgrDb::Key;
namespace GuidListKey = KyMacID::GuidListDb::Key;
namespace HddKey = KyGuid::HddDb::Key;
using KyGuid::GlobalMgrDb::kSection;
using KyMacID::GuidInfoDb::DigestSet;
using KyMacID::GuidListDb::kCurrentSection;

constexpr int kMaxListEntries = 1000;  // a damaged count must not run for ever

struct Value {
  const char* label;  // for people
  const char* json;   // for scripts
  const char* section;
  const char* key;
};

// The sequence-id cache and its backup share one layout.
const Value kGlobalMgrValues[] = {
    {"ancient guid", "ancientGuid", kSection, GlobalMgrKey::Id},
    {"mac hash", "macHash", kSection, GlobalMgrKey::MacDigest},
    {"disk hash", "diskHash", kSection, GlobalMgrKey::DriveDigest},
    {"cpu hash", "cpuHash", kSection, GlobalMgrKey::CpuDigest},
    {"with cpu", "withCpu", kSection, GlobalMgrKey::Version},
};
const Value kGuidListCurrent[] = {
    {"current guid", "guid", kCurrentSection, GuidListKey::Guid},
    {"mac hash", "macHash", kCurrentSection, GuidListKey::Mac},
    {"disk hash", "diskHash", kCurrentSection, GuidListKey::Hd},
    {"cpu hash", "cpuHash", kCurrentSection, GuidListKey::Cpu},
    {"change type", "changeType", kCurrentSection, GuidListKey::ChangeType},
};
const Value kHddValues[] = {
    {"serial", "serialNumber", KyGuid::HddDb::kSection, HddKey::SerialNumber},
    {"model", "modelNumber", KyGuid::HddDb::kSection, HddKey::ModelNumber},
    {"revision", "revisionNumber", KyGuid::HddDb::kSection, HddKey::RevisionNumber},
};
// GuidInfo.db: one section of digests per kind of hardware.
struct DigestList {
  const char* label;
  const char* json;
  DigestSet set;
};
const DigestList kDigestLists[] = {
    {"guids", "guids", KyMacID::GuidInfoDb::kGuids},
    {"mac hashes", "macHashes", KyMacID::GuidInfoDb::kMacs},
    {"disk hashes", "diskHashes", KyMacID::GuidInfoDb::kDrives},
    {"cpu hashes", "cpuHashes", KyMacID::GuidInfoDb::kCpus},
};

// How a file is shown: its named values, then what is particular to it.
struct LegacyFile {
  const char* name;
  const Value* values;
  size_t valueCount;
  void (*printMore)(const IniFile& file);
  void (*writeMore)(JsonWriter& json, const IniFile& file);
};

int EarlierCount(const IniFile& file) {
  using namespace KyMacID::GuidListDb;
  return std::min(file.Int(kCountSection, kCountKey, 0), kMaxListEntries);
}

void PrintGuidListMore(const IniFile& file) {
  PrintField(2, "saved", FormatTime(file.Int64(kCurrentSection, GuidListKey::Time)));
  PrintField(2, "earlier", std::to_string(EarlierCount(file)));
  for (int i = 0; i < EarlierCount(file); ++i) {
    const std::string section = KyMacID::GuidListDb::HistorySection(i);
    PrintField(4, section,
               file.String(section, GuidListKey::Guid) + ", saved " +
                   FormatTime(file.Int64(section, GuidListKey::Time)));
  }
}

void WriteGuidListMore(JsonWriter& json, const IniFile& file) {
  json.Int("time", file.Int64(kCurrentSection, GuidListKey::Time));
  json.BeginArray("earlier");
  for (int i = 0; i < EarlierCount(file); ++i) {
    const std::string section = KyMacID::GuidListDb::HistorySection(i);
    json.BeginObject()
        .String("guid", file.String(section, GuidListKey::Guid))
        .String("macHash", file.String(section, GuidListKey::Mac))
        .String("diskHash", file.String(section, GuidListKey::Hd))
        .String("cpuHash", file.String(section, GuidListKey::Cpu))
        .String("changeType", file.String(section, GuidListKey::ChangeType))
        .Int("time", file.Int64(section, GuidListKey::Time))
        .EndObject();
  }
  json.EndArray();
}

std::vector<std::string> Digests(const IniFile& file, const DigestSet& set) {
  std::vector<std::string> digests;
  const int count =
      std::min(file.Int(set.section, KyMacID::GuidInfoDb::kCountKey, 0), kMaxListEntries);
  for (int i = 0; i < count; ++i) {
    digests.push_back(file.String(set.section, set.keyPrefix + std::to_string(i)));
  }
  return digests;
}

void PrintGuidInfoMore(const IniFile& file) {
  for (const DigestList& list : kDigestLists) {
    PrintField(2, list.label, std::to_string(Digests(file, list.set).size()));
  }
}

void WriteGuidInfoMore(JsonWriter& json, const IniFile& file) {
  for (const DigestList& list : kDigestLists) {
    json.BeginArray(list.json);
    for (const std::string& digest : Digests(file, list.set)) json.String(nullptr, digest);
    json.EndArray();
  }
}

const LegacyFile kFiles[] = {
    {"GlobalMgr.db", kGlobalMgrValues, 5, nullptr, nullptr},
    {"GlobalMgrBack.db", kGlobalMgrValues, 5, nullptr, nullptr},
    {"GuidList.db", kGuidListCurrent, 5, &PrintGuidListMore, &WriteGuidListMore},
    {"GuidInfo.db", nullptr, 0, &PrintGuidInfoMore, &WriteGuidInfoMore},
    {"HDD.db", kHddValues, 3, nullptr, nullptr},
};

void PrintText(const std::string& folder) {
  PrintField(0, "folder", folder);
  for (const LegacyFile& legacy : kFiles) {
    const IniFile file(folder + "\\" + legacy.name);
    if (!file.Exists()) {
      PrintField(0, legacy.name, "absent");
      continue;
    }
    printf("%s\n", legacy.name);
    for (size_t i = 0; i < legacy.valueCount; ++i) {
      const Value& value = legacy.values[i];
      PrintField(2, value.label, file.String(value.section, value.key));
    }
    if (legacy.printMore) legacy.printMore(file);
  }
}

void PrintJson(const std::string& folder) {
  JsonWriter json;
  json.BeginObject().String("folder", folder);
  for (const LegacyFile& legacy : kFiles) {
    const IniFile file(folder + "\\" + legacy.name);
    if (!file.Exists()) {
      json.Null(legacy.name);
      continue;
    }
    json.BeginObject(legacy.name);
    for (size_t i = 0; i < legacy.valueCount; ++i) {
      const Value& value = legacy.values[i];
      json.String(value.json, file.String(value.section, value.key));
    }
    if (legacy.writeMore) legacy.writeMore(json, file);
    json.EndObject();
  }
  printf("%s\n", json.EndObject().Text().c_str());
}

}  // namespace

int LegacyCommand(const Options& options) {
  const std::string folder = KyGuid::GetProfileDirA();
  const bool any = std::any_of(std::begin(kFiles), std::end(kFiles), [&](const LegacyFile& f) {
    return IniFile(folder + "\\" + f.name).Exists();
  });
  if (!any) {
    PrintError("there are no legacy files (GlobalMgr.db and the others) in %s", folder.c_str());
    return kExitNoGuid;
  }
  if (options.json) {
    PrintJson(folder);
  } else {
    PrintText(folder);
  }
  return kExitOk;
}

}  // namespace KyGuidCli
