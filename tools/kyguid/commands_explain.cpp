// explain: a dry run of the update decision. It runs the update's own
// decision, saves nothing, and reports what was decided and why; nothing here
// decides anything itself.
#include <cstdio>

#include "kyguidlib/cguidbuilder.h"
#include "tools/kyguid/cli.h"
#include "tools/kyguid/describe.h"
#include "tools/kyguid/whatif.h"

namespace KyGuidCli {
namespace {

using KyGuid::CGuidBuilder;

// The matching table is consulted for a record from Guid.db (or for none);
// an ancient record is bound by its legacy values instead.
bool AncientPath(const CGuidBuilder& builder) { return builder.Plan().fromAncient; }

const char* SourceOf(const CGuidBuilder& builder) {
  if (builder.ActiveInfo().Guid.empty()) return nullptr;
  return AncientPath(builder) ? "GlobalMgr.db (ancient GUID)" : "Guid.db";
}

std::string RowText(const CGuidBuilder& builder) {
  const KyGuid::MatchDecision& match = builder.LastMatch();
  if (match.row == 0) return "none: an ancient GUID is bound by its legacy disk and MAC values";
  const std::string why = match.message ? match.message : "disk and adapter both match, no change";
  return std::to_string(match.row) + ": " + why;
}

std::string BoundDiskText(const CGuidBuilder& builder) {
  const KyGuid::GuidRecord& active = builder.ActiveInfo();
  if (const KyGuid::DiskInfo* disk = builder.FindDisk(active.DiskIndex)) {
    return std::to_string(disk->Index) + " " + KyGuid::DiskKey(*disk);
  }
  // The legacy scheme's disk reads can bind a drive the disk fetcher missed.
  if (active.DiskIndex >= 0)
    return "drive " + std::to_string(active.DiskIndex) + " " + active.DiskKey;
  return active.DiskKey.empty() ? "none" : "none; no present disk carries the stored key";
}

std::string BoundAdapterText(const CGuidBuilder& builder) {
  const KyGuid::GuidRecord& active = builder.ActiveInfo();
  if (const KyGuid::AdapterInfo* adapter = builder.FindAdapter(active.AdapterIndex)) {
    return std::to_string(adapter->Index) + " " + KyGuid::AdapterKey(*adapter);
  }
  return active.AdapterKey.empty() ? "none" : "none; no present adapter carries the stored key";
}

void PrintText(const std::string& hardware, const CGuidBuilder& builder, int result) {
  PrintField(0, "hardware", hardware);
  const char* source = SourceOf(builder);
  PrintField(0, "record in force", source ? source : "none (no Guid.db and no ancient GUID)");
  if (source) PrintRecord(2, builder.ActiveInfo());
  PrintField(0, "bound disk", BoundDiskText(builder));
  PrintField(0, "bound adapter", BoundAdapterText(builder));
  PrintField(0, "matching row", RowText(builder));
  PrintField(
      0, "decision",
      std::string(DescribeResult(result).decision) + " (result " + std::to_string(result) + ")");
  if (result == KyGuid::kResultKept) {
    PrintField(0, "guid", builder.NewInfo().Guid);
  } else {
    printf("new record\n");
    PrintRecord(2, builder.NewInfo());
  }
  printf("nothing was written (dry run)\n");
}

// Without the hardware's name, as inventory's document.
void PrintJson(const CGuidBuilder& builder, int result) {
  const KyGuid::GuidRecord& active = builder.ActiveInfo();
  JsonWriter json;
  json.BeginObject();
  if (const char* source = SourceOf(builder)) {
    json.String("source", source);
    WriteRecord(json, "recordInForce", active);
  } else {
    json.Null("source").Null("recordInForce");
  }
  json.Int("boundDiskIndex", active.DiskIndex);
  if (const KyGuid::DiskInfo* disk = builder.FindDisk(active.DiskIndex)) {
    WriteDisk(json, "boundDisk", *disk);
  } else {
    json.Null("boundDisk");
  }
  json.Int("boundAdapterIndex", active.AdapterIndex);
  if (const KyGuid::AdapterInfo* adapter = builder.FindAdapter(active.AdapterIndex)) {
    WriteAdapter(json, "boundAdapter", *adapter);
  } else {
    json.Null("boundAdapter");
  }
  const KyGuid::MatchDecision& match = builder.LastMatch();
  json.BeginObject("match").Int("row", match.row).Bool("keep", match.keep);
  json.String("text", RowText(builder)).EndObject();
  json.Int("result", result)
      .String("outcome", DescribeResult(result).word)
      .String("decision", DescribeResult(result).decision)
      .String("guid", builder.NewInfo().Guid);
  WriteRecord(json, "newRecord", builder.NewInfo());
  json.Bool("written", false).EndObject();
  printf("%s\n", json.Text().c_str());
}

}  // namespace

int ExplainCommand(const Options& options) {
  WhatIfMachine machine;
  if (!machine.Install(options.machineFile)) return kExitBadMachineFile;
  CGuidBuilder builder;
  const int result = builder.DecideNewGuid();
  if (options.json) {
    PrintJson(builder, result);
  } else {
    PrintText(machine.Description(), builder, result);
  }
  return result == KyGuid::kResultBuildFailed ? kExitNoGuid : kExitOk;
}

}  // namespace KyGuidCli
