// kyguid.exe as support engineers and scripts use it: every command under
// Wine, on this machine through the shipped DLL and on simulated machine
// files, in text and in JSON, and what it says when it cannot help.
#include <sstream>

#include "common/md5.h"
#include "tests/dlltestsupport.h"
#include "tests/flatjson.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::FlatJson;
using KyGuidTest::IniWrite;
using KyGuidTest::MachineProfileDir;
using KyGuidTest::ProcessResult;

constexpr char kDiskKey[] = "PID:{ST1000DM010-2EP102}SN:{Z9A1B2C3}";
constexpr char kVirtualDiskKey[] = "PID:{VBOX HARDDISK}SN:{VB0123-4567}";
constexpr char kNicAKey[] = "Mac:{001122aabbcc}";
constexpr char kNicBKey[] = "Mac:{001a2b3c4d5e}";
constexpr char kNicADetail[] =
    "Guid:{6A5B8C1D-7E2F-4A3B-9C4D-00000000000A}Desc:{Intel(R) Ethernet Connection I219-V}"
    "Mac:{001122aabbcc}Proto:{6}Type:{110}Score:{100}";
constexpr char kAncientGuid[] = "0badc0de0badc0de0badc0de0badc0de";

const std::string kDeskDisk =
    "[disk 0]\n"
    "model = ST1000DM010-2EP102\n"
    "serial = Z9A1B2C3\n"
    "revision = CC43\n"
    "system = yes\n";
const std::string kVirtualDisk =
    "[disk 0]\n"
    "model = VBOX HARDDISK\n"
    "serial = VB0123-4567\n"
    "revision = 1.0\n"
    "system = yes\n";
const std::string kNicA =
    "[adapter {6A5B8C1D-7E2F-4A3B-9C4D-00000000000A}]\n"
    "description = Intel(R) Ethernet Connection I219-V\n"
    "mac = 00-11-22-aa-bb-cc\n"
    "pnp = PCI\\VEN_8086&DEV_15B8\\3&11583659&0&FE\n";
const std::string kNicB =
    "[adapter {0F1E2D3C-4B5A-4968-8776-00000000000B}]\n"
    "description = Realtek PCIe GbE Family Controller\n"
    "mac = 00-1a-2b-3c-4d-5e\n"
    "pnp = PCI\\VEN_10EC&DEV_8168\\4&2B1F5C&0&00E4\n";

// The value of the first text line that starts with `label` (indent
// included) followed by blanks.
std::string TextField(const std::string& output, const std::string& label) {
  std::istringstream lines(output);
  std::string line;
  while (std::getline(lines, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.compare(0, label.size(), label) != 0 || line.size() <= label.size() ||
        line[label.size()] != ' ') {
      continue;
    }
    return line.substr(line.find_first_not_of(' ', label.size()));
  }
  return "(no line " + label + ")";
}

class KyguidCliTest : public KyGuidTest::DllTest {
 protected:
  std::string MachineFile(const std::string& text) {
    const std::string path = m_temp.Path() + "\\machine" + std::to_string(m_files++) + ".txt";
    KyGuidTest::WriteWholeFile(path, text);
    return path;
  }
  std::string OnMachine(const std::string& command, const std::string& machineText) {
    return command + " --machine \"" + MachineFile(machineText) + "\"";
  }
  // A record in force in Guid.db, built from the two keys; returns its GUID.
  std::string StoreActive(const std::string& diskKey, const std::string& adapterKey,
                          const std::string& adapterDetail = "", int createIndex = 0) {
    KyGuidTest::MakeDirs(MachineProfileDir());
    const std::string guid = KyGuidUtils::Md5Hex(diskKey + adapterKey);
    const std::string path = GuidDbPath();
    IniWrite(path, "ActiveGuid", "Guid", guid.c_str());
    IniWrite(path, "ActiveGuid", "DiskKey", diskKey.c_str());
    IniWrite(path, "ActiveGuid", "AdapterKey", adapterKey.c_str());
    IniWrite(path, "ActiveGuid", "AdapterDetail", adapterDetail.c_str());
    IniWrite(path, "ActiveGuid", "CreateIndex", std::to_string(createIndex).c_str());
    IniWrite(path, "ActiveGuid", "CreateTime", "1600000000");
    IniWrite(path, "ActiveGuid", "Score", "100");
    IniWrite(path, "ActiveGuid", "Version", "2");
    return guid;
  }
  ProcessResult Kyguid(const std::string& arguments) {
    return KyGuidTest::RunProcess("kyguid.exe " + arguments);
  }
  // Runs with --json, expecting `exitCode` and a valid document.
  FlatJson Json(const std::string& arguments, DWORD exitCode = 0) {
    const ProcessResult result = Kyguid(arguments + " --json");
    EXPECT_EQ(exitCode, result.exitCode) << arguments << "\n" << result.output;
    FlatJson json(result.output);
    EXPECT_TRUE(json.Valid()) << arguments << "\n" << result.output;
    return json;
  }

  KyGuidTest::TempDir m_temp;
  int m_files = 0;
};

TEST_F(KyguidCliTest, ExplainOnAnUnchangedMachineKeepsTheGuidAndWritesNothing) {
  const std::string guid = StoreActive(kDiskKey, kNicAKey, kNicADetail);
  const std::string before = KyGuidTest::ReadWholeFile(GuidDbPath());
  const std::string machine = MachineFile(kDeskDisk + kNicA);

  const ProcessResult text = Kyguid("explain --machine \"" + machine + "\"");
  EXPECT_EQ(0u, text.exitCode) << text.output;
  EXPECT_EQ("simulated from " + machine, TextField(text.output, "hardware"));
  EXPECT_EQ("Guid.db", TextField(text.output, "record in force"));
  EXPECT_EQ(guid, TextField(text.output, "  guid"));
  EXPECT_EQ("0, version 2, created 2020-09-13 12:26:40 UTC", TextField(text.output, "  build"));
  EXPECT_EQ(std::string("0 ") + kDiskKey, TextField(text.output, "bound disk"));
  EXPECT_EQ(std::string("11 ") + kNicAKey, TextField(text.output, "bound adapter"));
  EXPECT_EQ("1: disk and adapter both match, no change", TextField(text.output, "matching row"));
  EXPECT_EQ("keep the GUID in force (result 0)", TextField(text.output, "decision"));
  EXPECT_EQ(guid, TextField(text.output, "guid"));

  const FlatJson json = Json("explain --machine \"" + machine + "\"");
  EXPECT_EQ("kept", json["outcome"]);
  EXPECT_EQ("1", json["match.row"]);
  EXPECT_EQ("Guid.db", json["source"]);
  EXPECT_EQ(guid, json["guid"]);
  EXPECT_EQ(kDiskKey, json["boundDisk.key"]);
  EXPECT_EQ(kNicAKey, json["boundAdapter.key"]);
  EXPECT_EQ("false", json["written"]);

  EXPECT_EQ(before, KyGuidTest::ReadWholeFile(GuidDbPath()));
}

TEST_F(KyguidCliTest, NicReplacementIsKeptOnAGoodDiskAndRebuiltOnAVirtualDiskWmiForgot) {
  const std::string guid = StoreActive(kDiskKey, kNicAKey, kNicADetail);
  const ProcessResult good = Kyguid(OnMachine("explain", kDeskDisk + kNicB));
  EXPECT_EQ(0u, good.exitCode) << good.output;
  EXPECT_EQ("none; no present adapter carries the stored key",
            TextField(good.output, "bound adapter"));
  EXPECT_EQ("3: Disk match, adapter not found, but the disk is good, no change",
            TextField(good.output, "matching row"));
  EXPECT_EQ(guid, TextField(good.output, "guid"));

  // The old card is still installed but no longer listed; WMI decides.
  const std::string virtualGuid = StoreActive(kVirtualDiskKey, kNicAKey, kNicADetail, 6);
  const std::string removedNicA = kNicA + "present = no\n";
  const FlatJson forgotten =
      Json(OnMachine("explain", kVirtualDisk + removedNicA + "wmi = no\n" + kNicB));
  EXPECT_EQ("5", forgotten["match.row"]);
  EXPECT_EQ("3", forgotten["result"]);
  EXPECT_EQ("rebuilt", forgotten["outcome"]);
  EXPECT_EQ("null", forgotten["boundAdapter"]);
  EXPECT_EQ(KyGuidUtils::Md5Hex(std::string(kVirtualDiskKey) + kNicBKey), forgotten["guid"]);
  EXPECT_EQ("7", forgotten["newRecord.createIndex"]);
  EXPECT_EQ("adapter lost", forgotten["newRecord.reasonText"]);
  EXPECT_EQ(kNicBKey, forgotten["newRecord.adapterKey"]);

  const FlatJson known =
      Json(OnMachine("explain", kVirtualDisk + removedNicA + "wmi = yes\n" + kNicB));
  EXPECT_EQ("4", known["match.row"]);
  EXPECT_EQ("Bad Disk match, adapter not found, but find it in WMI, no change",
            known["match.text"].substr(3));
  EXPECT_EQ(virtualGuid, known["guid"]);
}

TEST_F(KyguidCliTest, AncientGuidIsAdoptedThroughItsLegacyMacAndDiskValues) {
  KyGuidTest::MakeDirs(MachineProfileDir());
  const std::string globalMgr = MachineProfileDir() + "\\GlobalMgr.db";
  IniWrite(globalMgr, "Profile", "config1", kAncientGuid);
  IniWrite(globalMgr, "Profile", "config2", KyGuidUtils::Md5Hex("001122aabbcc").c_str());
  IniWrite(globalMgr, "Profile", "config3",
           KyGuidUtils::Md5Hex("Z9A1B2C3ST1000DM010-2EP102CC43").c_str());

  const ProcessResult text = Kyguid(OnMachine("explain", kDeskDisk + kNicA));
  EXPECT_EQ(0u, text.exitCode) << text.output;
  EXPECT_EQ("GlobalMgr.db (ancient GUID)", TextField(text.output, "record in force"));
  EXPECT_EQ("none: an ancient GUID is bound by its legacy disk and MAC values",
            TextField(text.output, "matching row"));
  EXPECT_EQ("adopt the ancient GUID (result 2)", TextField(text.output, "decision"));

  const FlatJson json = Json(OnMachine("explain", kDeskDisk + kNicA));
  EXPECT_EQ("adopted", json["outcome"]);
  EXPECT_EQ("0", json["match.row"]);
  EXPECT_EQ(kAncientGuid, json["guid"]);
  EXPECT_EQ("0", json["boundDiskIndex"]);
  EXPECT_EQ(kNicAKey, json["boundAdapter.key"]);
  EXPECT_EQ("2", json["newRecord.version"]);
  EXPECT_EQ(kDiskKey, json["newRecord.diskKey"]);
  EXPECT_EQ("0", json["newRecord.reason"]);

  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(GuidDbPath().c_str()));
}

TEST_F(KyguidCliTest, WithoutAnyRecordExplainShowsTheFirstBuildOrThatNoGuidCanResult) {
  const FlatJson first = Json(OnMachine("explain", kDeskDisk + kNicA));
  EXPECT_EQ("built", first["outcome"]);
  EXPECT_EQ("1", first["result"]);
  EXPECT_EQ("null", first["recordInForce"]);
  EXPECT_EQ(KyGuidUtils::Md5Hex(std::string(kDiskKey) + kNicAKey), first["guid"]);
  EXPECT_EQ("0", first["newRecord.createIndex"]);

  const ProcessResult bare = Kyguid(OnMachine("explain", "# no disk, no adapter\n"));
  EXPECT_EQ(1u, bare.exitCode) << bare.output;
  EXPECT_EQ("none (no Guid.db and no ancient GUID)", TextField(bare.output, "record in force"));
  EXPECT_EQ("no GUID: there is no disk, no adapter and no GUID in force (result -1)",
            TextField(bare.output, "decision"));
  EXPECT_EQ("00000000000000000000000000000001", TextField(bare.output, "  guid"));
}

TEST_F(KyguidCliTest, InventoryShowsEveryFetchedFieldOfASimulatedMachine) {
  const std::string machine =
      kDeskDisk + "[disk 1]\nmodel = USB Flash\nbus = usb\nremovable = yes\n" + kNicA +
      "[adapter {WIFI}]\ndescription = Wireless LAN\nmac = 02:00:00:00:00:01\n"
      "pnp = USB\\VID_0BDA&PID_8179\\00E04C0001\ntype = wifi\n";
  const FlatJson json = Json(OnMachine("inventory", machine));
  ASSERT_EQ("#2", json["disks"]);
  EXPECT_EQ("150", json["disks[0].score"]);
  EXPECT_EQ("true", json["disks[0].system"]);
  EXPECT_EQ(kDiskKey, json["disks[0].key"]);
  EXPECT_EQ(
      "DID:{0}PID:{ST1000DM010-2EP102}VID:{}Rev:{CC43}SN:{Z9A1B2C3}Sys:{1}Move:{0}"
      "Bus:{11}Score:{100}",
      json["disks[0].detail"]);
  EXPECT_EQ("false", json["disks[1].best"]);
  EXPECT_EQ("35", json["disks[1].score"]);  // 100 - 50 removable - 5 bus - 10 no serial
  ASSERT_EQ("#2", json["adapters"]);
  EXPECT_EQ("PCI\\VEN_8086&DEV_15B8\\3&11583659&0&FE", json["adapters[0].pnpId"]);
  EXPECT_EQ("true", json["adapters[0].best"]);
  EXPECT_EQ(kNicADetail, json["adapters[0].detail"]);
  EXPECT_EQ("71", json["adapters[1].protocol"]);
  EXPECT_EQ("50", json["adapters[1].score"]);  // wireless USB

  const ProcessResult text = Kyguid(OnMachine("inventory", machine));
  EXPECT_EQ(0u, text.exitCode) << text.output;
  EXPECT_EQ("11 (SATA)", TextField(text.output, "  bus"));
  EXPECT_EQ("system, best", TextField(text.output, "  flags"));
  EXPECT_EQ("150, good disk", TextField(text.output, "  score"));
  EXPECT_EQ("110 (wired PCI)", TextField(text.output, "  type"));
  EXPECT_NE(std::string::npos, text.output.find("\nadapter 12\r\n")) << text.output;
}

TEST_F(KyguidCliTest, OnThisMachineEveryCommandAgreesWithWhatTheDllKeeps) {
  const FlatJson update = Json("update");
  EXPECT_EQ("1", update["result"]);
  EXPECT_EQ("null", update["oldGuid"]);
  const std::string guid = update["newGuid"];
  ASSERT_EQ(32u, guid.size());
  EXPECT_EQ(guid, Json("read")["guid"]);
  EXPECT_EQ(guid, Json("build")["guid"]);

  const FlatJson explain = Json("explain");
  EXPECT_EQ("this machine", explain["hardware"]);
  EXPECT_EQ("kept", explain["outcome"]);
  EXPECT_EQ(guid, explain["guid"]);

  const FlatJson history = Json("history");
  EXPECT_EQ(guid, history["active.guid"]);
  EXPECT_EQ("Build0", history["builds[0].section"]);

  EXPECT_EQ("this machine", Json("inventory")["hardware"]);
}

TEST_F(KyguidCliTest, HistoryListsTheRingNewestFirstWithWhatEachBuildReplaced) {
  const ProcessResult none = Kyguid("history");
  EXPECT_EQ(1u, none.exitCode);
  EXPECT_EQ(
      "kyguid: there is no Guid.db yet in " + MachineProfileDir() + "; an update creates it.\r\n",
      none.output);

  const std::string g5 = StoreActive(kDiskKey, kNicBKey, "", 5);
  const std::string path = GuidDbPath();
  auto build = [&](const char* section, const std::string& guid, int index, const char* old,
                   int oldIndex, int oldVersion) {
    IniWrite(path, section, "Guid", guid.c_str());
    IniWrite(path, section, "CreateIndex", std::to_string(index).c_str());
    IniWrite(path, section, "CreateTime", "1600000000");
    IniWrite(path, section, "Reason", "2");
    IniWrite(path, section, "Version", "2");
    if (!old) return;
    IniWrite(path, section, "OldGuid", old);
    IniWrite(path, section, "OldCreateIndex", std::to_string(oldIndex).c_str());
    IniWrite(path, section, "OldVersion", std::to_string(oldVersion).c_str());
  };
  const std::string g4(32, '4');
  build("Build0", g5, 5, g4.c_str(), 4, 2);
  IniWrite(path, "Build0", "DiskCount", "1");
  IniWrite(path, "Build0", "Disk0", "DID:{0}PID:{ST1000DM010-2EP102}");
  IniWrite(path, "Build0", "Disk1", "left from a longer list");
  IniWrite(path, "Build0", "AdapterCount", "2");
  IniWrite(path, "Build0", "Adapter0", "Guid:{A}");
  IniWrite(path, "Build0", "Adapter1", "Guid:{B}");
  build("Build4", g4, 4, "3333", 3, 2);
  build("Build2", std::string(32, '2'), 2, nullptr, 0, 0);
  build("Build-1", kAncientGuid, -1, kAncientGuid, -1, 1);

  const FlatJson json = Json("history");
  EXPECT_EQ(g5, json["active.guid"]);
  ASSERT_EQ("#4", json["builds"]);
  EXPECT_EQ("Build0", json["builds[0].section"]);
  EXPECT_EQ("Build2", json["builds[2].section"]);
  EXPECT_EQ("Build-1", json["builds[3].section"]);
  EXPECT_EQ("adapter lost", json["builds[0].record.reasonText"]);
  EXPECT_EQ(g4, json["builds[0].replaced.guid"]);
  EXPECT_EQ("#1", json["builds[0].disks"]);
  EXPECT_EQ("Guid:{B}", json["builds[0].adapters[1]"]);
  EXPECT_EQ("null", json["builds[2].replaced"]);
  EXPECT_EQ("1", json["builds[3].replaced.version"]);

  const ProcessResult text = Kyguid("history");
  EXPECT_EQ(0u, text.exitCode) << text.output;
  const size_t b0 = text.output.find("\nBuild0\r\n");
  const size_t b4 = text.output.find("\nBuild4\r\n");
  const size_t bAncient = text.output.find("\nBuild-1\r\n");
  EXPECT_TRUE(b0 < b4 && b4 < bAncient && bAncient != std::string::npos) << text.output;
  EXPECT_EQ(g4 + " (build 4, version 2)", TextField(text.output.substr(b0), "  replaced"));
  EXPECT_EQ("none", TextField(text.output.substr(bAncient), "  build").substr(0, 4));
}

TEST_F(KyguidCliTest, LegacySummarisesTheEarlierSchemesFiles) {
  const ProcessResult none = Kyguid("legacy");
  EXPECT_EQ(1u, none.exitCode);
  EXPECT_NE(std::string::npos, none.output.find("kyguid: there are no legacy files"))
      << none.output;

  const std::string dir = MachineProfileDir();
  KyGuidTest::MakeDirs(dir);
  IniWrite(dir + "\\GlobalMgr.db", "Profile", "config1", kAncientGuid);
  IniWrite(dir + "\\GuidList.db", "CurGuid", "Guid", kAncientGuid);
  IniWrite(dir + "\\GuidList.db", "CurGuid", "Time", "1600000000");
  IniWrite(dir + "\\GuidList.db", "ListCount", "Count", "1");
  IniWrite(dir + "\\GuidList.db", "GuidList_0", "Guid", "1111");
  IniWrite(dir + "\\GuidInfo.db", "MacList", "Count", "2");
  IniWrite(dir + "\\GuidInfo.db", "MacList", "Mac_0", "aaaa");
  IniWrite(dir + "\\GuidInfo.db", "MacList", "Mac_1", "bbbb");
  IniWrite(dir + "\\HDD.db", "HDD", "SerialNumber", "Rand_XyZ");

  const FlatJson json = Json("legacy");
  EXPECT_EQ(kAncientGuid, json["GlobalMgr.db.ancientGuid"]);
  EXPECT_EQ("null", json["GlobalMgrBack.db"]);
  EXPECT_EQ("1600000000", json["GuidList.db.time"]);
  EXPECT_EQ("1111", json["GuidList.db.earlier[0].guid"]);
  EXPECT_EQ("bbbb", json["GuidInfo.db.macHashes[1]"]);
  EXPECT_EQ("Rand_XyZ", json["HDD.db.serialNumber"]);

  const ProcessResult text = Kyguid("legacy");
  EXPECT_EQ(0u, text.exitCode) << text.output;
  EXPECT_EQ(kAncientGuid, TextField(text.output, "  ancient guid"));
  EXPECT_EQ("absent", TextField(text.output, "GlobalMgrBack.db"));
  EXPECT_EQ("2020-09-13 12:26:40 UTC", TextField(text.output, "  saved"));
}

struct BadCall {
  const char* arguments;
  DWORD exitCode;
  const char* output;
};

TEST_F(KyguidCliTest, BadCommandLinesAndMachineFilesGetOneSentenceAndTheirExitCode) {
  const std::string badMachine = MachineFile("[disk 0]\nmodel = X\nmodle = Y\n");
  const std::string badCall = "explain --machine " + badMachine;
  const std::string badSentence =
      "kyguid: the machine file " + badMachine +
      " has an error in line 3: unknown disk key 'modle'; disk keys are model, serial, revision, "
      "vendor, bus, removable, system.\r\n";
  const BadCall kCalls[] = {
      {"frobnicate", 2, "kyguid: unknown command 'frobnicate'; try kyguid --help.\r\n"},
      {"explain --verbose", 2,
       "kyguid: unknown option '--verbose' for explain; try kyguid explain --help.\r\n"},
      {"history --machine m.txt", 2,
       "kyguid: --machine works only with inventory and explain, not with history.\r\n"},
      {"explain --machine", 2, "kyguid: --machine needs the name of a machine file.\r\n"},
      {"inventory --machine=C:\\no\\such.txt", 4,
       "kyguid: the machine file C:\\no\\such.txt cannot be read.\r\n"},
      {badCall.c_str(), 4, badSentence.c_str()},
  };
  for (const BadCall& call : kCalls) {
    const ProcessResult result = Kyguid(call.arguments);
    EXPECT_EQ(call.exitCode, result.exitCode) << call.arguments;
    EXPECT_EQ(call.output, result.output) << call.arguments;
  }

  const ProcessResult bare = KyGuidTest::RunProcess("kyguid.exe");
  EXPECT_EQ(2u, bare.exitCode);
  EXPECT_EQ(0u, bare.output.find("usage: kyguid <command>")) << bare.output;
  EXPECT_EQ(0u, Kyguid("--help").exitCode);
  for (const char* command :
       {"read", "update", "build", "inventory", "explain", "history", "legacy"}) {
    const ProcessResult help = Kyguid(std::string(command) + " --json --help");
    EXPECT_EQ(0u, help.exitCode) << command;
    EXPECT_EQ(0u, help.output.find(std::string("usage: kyguid ") + command)) << help.output;
  }
}

TEST_F(KyguidCliTest, UpdateRefusesADataFolderItCannotWrite) {
  const std::string dir = MachineProfileDir();
  KyGuidTest::MakeDirs(dir.substr(0, dir.rfind('\\')));
  RemoveDirectoryA(dir.c_str());
  ASSERT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(dir.c_str()));
  KyGuidTest::WriteWholeFile(dir, "a file where the data folder belongs");

  const ProcessResult update = Kyguid("update");
  DeleteFileA(dir.c_str());
  EXPECT_EQ(5u, update.exitCode);
  EXPECT_EQ("kyguid: the data folder " + dir + " is not writable, so no update can be saved.\r\n",
            update.output);
}

}  // namespace
