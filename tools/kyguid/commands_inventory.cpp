// inventory: the disks and adapters exactly as the fetchers hand them to the
// GUID engine, with everything the engine derives from them.
#include <cstdio>

#include "kyguidlib/cadapterfetcher.h"
#include "kyguidlib/cdiskfetcher.h"
#include "tools/kyguid/cli.h"
#include "tools/kyguid/describe.h"
#include "tools/kyguid/whatif.h"

namespace KyGuidCli {
namespace {

void PrintText(const std::string& hardware, const std::vector<KyGuid::DiskInfo>& disks,
               const std::vector<KyGuid::AdapterInfo>& adapters) {
  PrintField(0, "hardware", hardware);
  PrintField(0, "disks", std::to_string(disks.size()));
  PrintField(0, "adapters", std::to_string(adapters.size()));
  for (const KyGuid::DiskInfo& disk : disks) {
    printf("\n");
    PrintDisk(disk);
  }
  for (const KyGuid::AdapterInfo& adapter : adapters) {
    printf("\n");
    PrintAdapter(adapter);
  }
}

// Without the hardware's name, which text output shows: the same hardware
// read live or replayed from a captured file gives the same document.
void PrintJson(const std::vector<KyGuid::DiskInfo>& disks,
               const std::vector<KyGuid::AdapterInfo>& adapters) {
  JsonWriter json;
  json.BeginObject().BeginArray("disks");
  for (const KyGuid::DiskInfo& disk : disks) WriteDisk(json, nullptr, disk);
  json.EndArray().BeginArray("adapters");
  for (const KyGuid::AdapterInfo& adapter : adapters) WriteAdapter(json, nullptr, adapter);
  json.EndArray().EndObject();
  printf("%s\n", json.Text().c_str());
}

}  // namespace

int InventoryCommand(const Options& options) {
  WhatIfMachine machine;
  if (!machine.Install(options.machineFile)) return kExitBadMachineFile;
  KyGuid::CDiskFetcher disks;
  disks.Fetch();
  KyGuid::CAdapterFetcher adapters;
  adapters.Fetch();
  if (options.json) {
    PrintJson(disks.Disks(), adapters.Adapters());
  } else {
    PrintText(machine.Description(), disks.Disks(), adapters.Adapters());
  }
  return kExitOk;
}

}  // namespace KyGuidCli
