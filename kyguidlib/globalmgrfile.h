// GlobalMgr.db, the legacy scheme's cache, which older
// components of the suite read for the machine id. Every read and write of
// it goes through here.
//
//   [Profile]              narrow INI, CR LF
//   config1=<id: 32 lower-case hex digits; after an update, the GUID in force>
//   config2=<MD5 of the MAC text, or empty>
//   config3=<MD5 of serial + model + revision, or empty>
//   config4=<MD5 of the CPU brand, or empty>
//   config5=1              (absent in files written before the CPU brand)
#pragma once

#include <cstdint>
#include <string>

namespace KyGuid {

namespace GlobalMgrDb {
constexpr char kSection[] = "Profile";
namespace Key {
constexpr char Id[] = "config1";
constexpr char MacDigest[] = "config2";
constexpr char DriveDigest[] = "config3";
constexpr char CpuDigest[] = "config4";
constexpr char Version[] = "config5";
}  // namespace Key
}  // namespace GlobalMgrDb

struct GlobalMgrValues {
  std::string id;           // config1
  std::string macDigest;    // config2
  std::string driveDigest;  // config3
  std::string cpuDigest;    // config4
  int version = 0;          // config5, 0 when absent
};

// The readers differ in buffer size, and so in where a long value is cut:
// the legacy code reads 33 characters (32 and the NUL), the GUID builder 128.
constexpr uint32_t kLegacyValueBuffer = 33;
constexpr uint32_t kBuilderValueBuffer = 128;

GlobalMgrValues ReadGlobalMgr(const std::string& path, uint32_t valueBuffer);
std::string ReadGlobalMgrId(const std::string& path, uint32_t valueBuffer);
// Replaces config1 alone, through the profile functions.
void WriteGlobalMgrId(const std::string& path, const std::string& id);

// The whole file as the legacy scheme writes it (config5 always 1).
std::string GlobalMgrText(const GlobalMgrValues& values);
// Writes that text from the start of the file in one write, creating the
// file when missing. The file is not truncated: a longer older file keeps
// its tail, which the profile readers never reach past config5. False (with
// the system's error set) when the file cannot be opened.
bool WriteGlobalMgrFile(const std::wstring& path, const GlobalMgrValues& values);

}  // namespace KyGuid
