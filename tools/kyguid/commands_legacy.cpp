// legacy: the earlier identifier scheme's files in the data folder, which
// explain where an ancient GUID came from and what it will be bound by.
#include <algorithm>
#include <cstdio>
#include <vector>

#include "kyguidlib/guidpaths.h"
#include "tools/kyguid/cli.h"
#include "tools/kyguid/describe.h"
#include "tools/kyguid/inifile.h"

namespace KyGuidCli {
namespace {

constexpr int kMaxListEntries = 1000;  // a damaged count must not run for ever

struct Value {
  const char* label;  // for people
  const char* json;   // for scripts
  const char* section;
  const char* key;
};

// The sequence-id cache and its backup share one layout.
const Value kGlobalMgrValues[] = {
    {"ancient guid", "ancientGuid", "Profile", "config1"},
    {"mac hash", "macHash", "Profile", "config2"},
    {"disk hash", "diskHash", "Profile", "config3"},
    {"cpu hash", "cpuHash", "Profile", "config4"},
    {"with cpu", "withCpu", "Profile", "config5"},
};
const Value kGuidListCurrent[] = {
    {"current guid", "guid", "CurGuid", "Guid"},
    {"mac hash", "macHash", "CurGuid", "Mac"},
    {"disk hash", "diskHash", "CurGuid", "Hd"},
    {"cpu hash", "cpuHash", "CurGuid", "Cpu"},
    {"change type", "changeType", "CurGuid", "ChangeType"},
};
const Value kHddValues[] = {
    {"serial", "serialNumber", "HDD", "SerialNumber"},
    {"model", "modelNumber", "HDD", "ModelNumber"},
    {"revision", "revisionNumber", "HDD", "RevisionNumber"},
};
// GuidInfo.db: one section of digests per kind of hardware.
struct DigestSet {
  const char* label;
  const char* json;
  const char* section;
  const char* keyPrefix;
};
const DigestSet kDigestSets[] = {
    {"guids", "guids", "GuidList", "Guid_"},
    {"mac hashes", "macHashes", "MacList", "Mac_"},
    {"disk hashes", "diskHashes", "HdList", "Hd_"},
    {"cpu hashes", "cpuHashes", "CpuList", "Cpu_"},
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
  return std::min(file.Int("ListCount", "Count", 0), kMaxListEntries);
}

void PrintGuidListMore(const IniFile& file) {
  PrintField(2, "saved", FormatTime(file.Int64("CurGuid", "Time")));
  PrintField(2, "earlier", std::to_string(EarlierCount(file)));
  for (int i = 0; i < EarlierCount(file); ++i) {
    const std::string section = "GuidList_" + std::to_string(i);
    PrintField(4, section,
               file.String(section, "Guid") + ", saved " + FormatTime(file.Int64(section, "Time")));
  }
}

void WriteGuidListMore(JsonWriter& json, const IniFile& file) {
  json.Int("time", file.Int64("CurGuid", "Time"));
  json.BeginArray("earlier");
  for (int i = 0; i < EarlierCount(file); ++i) {
    const std::string section = "GuidList_" + std::to_string(i);
    json.BeginObject()
        .String("guid", file.String(section, "Guid"))
        .String("macHash", file.String(section, "Mac"))
        .String("diskHash", file.String(section, "Hd"))
        .String("cpuHash", file.String(section, "Cpu"))
        .String("changeType", file.String(section, "ChangeType"))
        .Int("time", file.Int64(section, "Time"))
        .EndObject();
  }
  json.EndArray();
}

std::vector<std::string> Digests(const IniFile& file, const DigestSet& set) {
  std::vector<std::string> digests;
  const int count = std::min(file.Int(set.section, "Count", 0), kMaxListEntries);
  for (int i = 0; i < count; ++i) {
    digests.push_back(file.String(set.section, set.keyPrefix + std::to_string(i)));
  }
  return digests;
}

void PrintGuidInfoMore(const IniFile& file) {
  for (const DigestSet& set : kDigestSets) {
    PrintField(2, set.label, std::to_string(Digests(file, set).size()));
  }
}

void WriteGuidInfoMore(JsonWriter& json, const IniFile& file) {
  for (const DigestSet& set : kDigestSets) {
    json.BeginArray(set.json);
    for (const std::string& digest : Digests(file, set)) json.String(nullptr, digest);
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
