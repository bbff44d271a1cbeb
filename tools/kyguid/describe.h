// How records, devices, times and reasons are shown, so that every command
// shows them alike: text for people, JSON members for scripts.
#pragma once

#include <cstdint>
#include <string>

#include "kyguidlib/guidrecord.h"
#include "kyguidlib/hwrecords.h"
#include "tools/kyguid/jsonwriter.h"

namespace KyGuidCli {

// "2020-09-13 12:26:40 UTC"; "(none)" for 0, which means never set.
std::string FormatTime(int64_t secondsSince1970);
// "none", "disk lost", "adapter lost" or "disk lost, adapter lost".
std::string ReasonText(int reason);
// "11 (SATA)", or the bare number for one without a name.
std::string BusText(uint32_t bus);
std::string ProtocolText(uint32_t protocol);
// The adapter's connection-class rating: "110 (wired PCI)".
std::string RatingText(uint32_t type);
// A GUID record's build number; "none" below 0.
std::string BuildText(int createIndex);

// An update result (-1 to 4) in words: one word, what a decision would do
// (explain) and what an update did (update).
struct ResultText {
  const char* word;
  const char* decision;
  const char* done;
};
ResultText DescribeResult(int result);

// One "label  value" line; an empty value shows as "(empty)".
void PrintField(int indent, const std::string& label, const std::string& value);

void PrintRecord(int indent, const KyGuid::GuidRecord& record);
void PrintDisk(const KyGuid::DiskInfo& disk);
void PrintAdapter(const KyGuid::AdapterInfo& adapter);

void WriteRecord(JsonWriter& json, const char* key, const KyGuid::GuidRecord& record);
void WriteDisk(JsonWriter& json, const char* key, const KyGuid::DiskInfo& disk);
void WriteAdapter(JsonWriter& json, const char* key, const KyGuid::AdapterInfo& adapter);

}  // namespace KyGuidCli
