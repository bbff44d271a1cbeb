// history: the record in force and the builds kept in Guid.db, newest first,
// read straight from the file so that it shows what is there, even entries
// the builder would reject.
#include <algorithm>
#include <cstdio>
#include <vector>

#include "common/strutil.h"
#include "kyguidlib/guiddbfile.h"
#include "kyguidlib/guidpaths.h"
#include "tools/kyguid/cli.h"
#include "tools/kyguid/describe.h"
#include "tools/kyguid/inifile.h"

namespace KyGuidCli {
namespace {

using KyGuid::GuidRecord;
namespace GuidDb = KyGuid::GuidDb;

// A damaged count must not have the tool read for ever.
constexpr unsigned kMaxListEntries = 1000;

struct Build {
  std::string section;
  GuidRecord record;
  GuidRecord replaced;  // empty Guid: this build replaced none
  std::vector<std::string> disks;
  std::vector<std::string> adapters;
};

std::vector<Build> ReadBuilds(const std::string& path) {
  std::vector<Build> builds;
  for (int n = GuidDb::kFirstBuildSection; n <= GuidDb::kLastBuildSection; ++n) {
    Build build;
    build.section = GuidDb::BuildSection(n);
    build.record = GuidDb::ReadStoredRecord(path, build.section, "");
    if (build.record.Guid.empty()) continue;
    build.replaced = GuidDb::ReadStoredRecord(path, build.section, GuidDb::kReplacedPrefix);
    build.disks = GuidDb::ReadList(path, build.section, GuidDb::kDiskList, kMaxListEntries);
    build.adapters = GuidDb::ReadList(path, build.section, GuidDb::kAdapterList, kMaxListEntries);
    builds.push_back(build);
  }
  std::stable_sort(builds.begin(), builds.end(), [](const Build& a, const Build& b) {
    return a.record.CreateIndex > b.record.CreateIndex;
  });
  return builds;
}

void PrintList(const char* label, const std::vector<std::string>& entries) {
  PrintField(2, label, std::to_string(entries.size()));
  for (const std::string& entry : entries) printf("    %s\n", entry.c_str());
}

void PrintText(const std::string& path, const GuidRecord& active,
               const std::vector<Build>& builds) {
  PrintField(0, "Guid.db", path);
  printf("in force\n");
  if (KyGuidUtils::IsGuidText(active.Guid)) {
    PrintRecord(2, active);
  } else {
    PrintField(2, "guid", "none valid");
  }
  for (const Build& build : builds) {
    printf("\n%s\n", build.section.c_str());
    PrintRecord(2, build.record);
    const GuidRecord& old = build.replaced;
    PrintField(2, "replaced",
               old.Guid.empty() ? "none"
                                : old.Guid + " (build " + BuildText(old.CreateIndex) +
                                      ", version " + std::to_string(old.Version) + ")");
    PrintList("disks", build.disks);
    PrintList("adapters", build.adapters);
  }
}

void WriteList(JsonWriter& json, const char* key, const std::vector<std::string>& entries) {
  json.BeginArray(key);
  for (const std::string& entry : entries) json.String(nullptr, entry);
  json.EndArray();
}

void PrintJson(const std::string& path, const GuidRecord& active,
               const std::vector<Build>& builds) {
  JsonWriter json;
  json.BeginObject().String("path", path);
  if (KyGuidUtils::IsGuidText(active.Guid)) {
    WriteRecord(json, "active", active);
  } else {
    json.Null("active");
  }
  json.BeginArray("builds");
  for (const Build& build : builds) {
    json.BeginObject().String("section", build.section);
    WriteRecord(json, "record", build.record);
    if (build.replaced.Guid.empty()) {
      json.Null("replaced");
    } else {
      WriteRecord(json, "replaced", build.replaced);
    }
    WriteList(json, "disks", build.disks);
    WriteList(json, "adapters", build.adapters);
    json.EndObject();
  }
  json.EndArray().EndObject();
  printf("%s\n", json.Text().c_str());
}

}  // namespace

int HistoryCommand(const Options& options) {
  const IniFile file(KyGuid::GetGuidFilePath());
  if (!file.Exists()) {
    PrintError("there is no Guid.db yet in %s; an update creates it",
               KyGuid::GetProfileDirA().c_str());
    return kExitNoGuid;
  }
  const GuidRecord active = GuidDb::ReadStoredRecord(file.Path(), GuidDb::kActiveSection, "");
  const std::vector<Build> builds = ReadBuilds(file.Path());
  if (options.json) {
    PrintJson(file.Path(), active, builds);
  } else {
    PrintText(file.Path(), active, builds);
  }
  return KyGuidUtils::IsGuidText(active.Guid) ? kExitOk : kExitNoGuid;
}

}  // namespace KyGuidCli
