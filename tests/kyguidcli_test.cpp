// kyguid.exe as support engineers and scripts use it: each command on this
// machine through the shipped DLL or on a what-if machine file, in text and
// in JSON, and the exit code and sentence of each way it can fail.
#include <regex>

#include "common/md5.h"
#include "common/strutil.h"
#include "tests/dlltestsupport.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::IniWrite;
using KyGuidTest::MachineProfileDir;
using KyGuidTest::ProcessResult;

constexpr char kDiskKey[] = "PID:{ST1000DM010-2EP102}SN:{Z9A1B2C3}";
const std::string kDisk =
    "[disk 0]\nmodel = ST1000DM010-2EP102\nserial = Z9A1B2C3\nrevision = CC43\nsystem = yes\n";
const std::string kNicA =
    "[adapter {6A5B8C1D-7E2F-4A3B-9C4D-00000000000A}]\nmac = 00-11-22-aa-bb-cc\n"
    "pnp = PCI\\VEN_8086&DEV_15B8\\3&11583659&0&FE\n"
    "description = Intel \"Pro\"\tx\\y caf\xE9\n";
const std::string kNicB =
    "[adapter {0F1E2D3C-4B5A-4968-8776-00000000000B}]\nmac = 00-1a-2b-3c-4d-5e\n";

// A whole line of a labelled field as the tool prints it (indent included).
std::string Field(const std::string& label, const std::string& value) {
  return "\n" + label + std::string(17 - label.size(), ' ') + value + "\r\n";
}

// Also whether a JSON document is whole: its last line closes the outermost
// object, so every container the tool opened was closed.
bool Has(const ProcessResult& result, const std::string& text) {
  return result.output.find(text) != std::string::npos;
}

class KyguidCliTest : public KyGuidTest::DllTest {
 protected:
  ProcessResult Kyguid(const std::string& arguments) {
    return KyGuidTest::RunProcess("kyguid.exe " + arguments);
  }
  ProcessResult OnMachine(const std::string& command, const std::string& machine) {
    const std::string path = m_temp.Path() + "\\machine.txt";
    KyGuidTest::WriteWholeFile(path, machine);
    return Kyguid(command + " --machine " + path);
  }
  KyGuidTest::TempDir m_temp;
};

TEST_F(KyguidCliTest, EveryCommandOnThisMachineAgreesWithGuidDb) {
  const ProcessResult update = Kyguid("update");
  EXPECT_EQ(0u, update.exitCode) << update.output;
  const std::string guid = KyGuidTest::IniRead(GuidDbPath(), "ActiveGuid", "Guid");
  EXPECT_EQ("result: 1 (the first GUID was built)\r\nold:    (none)\r\nnew:    " + guid + "\r\n",
            update.output);
  EXPECT_TRUE(Has(Kyguid("update --json"), "\"result\": 0,\r\n  \"meaning\": \"the GUID in force"));
  EXPECT_EQ(guid + "\r\n", Kyguid("read").output);
  EXPECT_EQ("{\r\n  \"guid\": \"" + guid + "\"\r\n}\r\n", Kyguid("build --json").output);
  EXPECT_TRUE(Has(Kyguid("history"), "\nBuild0\r" + Field("  guid", guid)));
  EXPECT_TRUE(Has(Kyguid("legacy"), Field("  ancient guid", guid)));
}

TEST_F(KyguidCliTest, ExplainTellsWhatAnUpdateWouldDecideOnAWhatIfMachineAndWritesNothing) {
  KyGuidTest::MakeDirs(MachineProfileDir());
  const std::string guid = KyGuidUtils::Md5Hex(std::string(kDiskKey) + "Mac:{001122aabbcc}");
  const std::string before = "[ActiveGuid]\r\nGuid=" + guid + "\r\nDiskKey=" + kDiskKey +
                             "\r\nAdapterKey=Mac:{001122aabbcc}\r\nCreateIndex=5\r\n"
                             "CreateTime=1600000000\r\nVersion=2\r\n";
  KyGuidTest::WriteWholeFile(GuidDbPath(), before);
  const ProcessResult text = OnMachine("explain", kDisk + kNicB);  // the adapter swapped
  for (const std::string& line :
       {Field("  build", "5, version 2, created 2020-09-13 12:26:40 UTC"),
        Field("bound adapter", "none; no present adapter carries the stored key"),
        Field("matching row", "3: Disk match, adapter not found, but the disk is good, no change"),
        Field("decision", "keep the GUID in force (result 0)"), Field("guid", guid)}) {
    EXPECT_TRUE(Has(text, line)) << line << text.output;
  }
  const ProcessResult json = OnMachine("explain --json", kDisk + kNicB);
  EXPECT_TRUE(Has(json, "\n}\r\n") && Has(json, "\"row\": 3,") &&
              Has(json, "\"outcome\": \"kept\",") && Has(json, "\"written\": false\r\n"))
      << json.output;
  EXPECT_EQ(before, KyGuidTest::ReadWholeFile(GuidDbPath()));

  DeleteFileA(GuidDbPath().c_str());
  const ProcessResult bare = OnMachine("explain", "# no disk, no adapter\n");
  EXPECT_EQ(1u, bare.exitCode);
  const std::string none = "no GUID: there is no disk, no adapter and no GUID in force (result -1)";
  EXPECT_TRUE(Has(bare, Field("decision", none))) << bare.output;
}

// The file as support writes it by hand: a byte order mark, comments, CRLF
// lines, keys in any case, blanks around heads and values.
TEST_F(KyguidCliTest, InventoryShowsEveryFetchedFieldOfAWhatIfMachineFile) {
  const std::string machine =
      "\xEF\xBB\xBF# desk\r\n" + kDisk + "; a stick\r\n[disk 1]\r\n  Model = USB Flash  \r\n" +
      "vendor = ACME\r\nbus = usb\r\nremovable = yes\r\n" + kNicA +
      "[ adapter  WIFI ]\nmac = 02:00:00:00:00:01\n" +
      "type = wifi\nindex = 7\npnp = USB\\VID_0BDA\n[adapter {GONE}]\nmac = 00\npresent = no\n";
  const ProcessResult text = OnMachine("inventory", machine);
  for (const std::string& line :
       {Field("adapters", "2"), Field("  flags", "system, best"),
        Field("  score", "150, good disk"), Field("  model", "USB Flash"),
        Field("  vendor", "ACME"), Field("  score", "35, not good alone"),
        Field("  type", "110 (wired PCI)"),
        std::string("\nadapter 7\r\n") + Field("  name", "WIFI").substr(1),
        Field("  type", "50 (wireless USB)")}) {
    EXPECT_TRUE(Has(text, line)) << line << text.output;
  }
  // Hardware strings leave as JSON text: escaped, and from the ANSI code page
  // into UTF-8.
  const ProcessResult json = OnMachine("inventory --json", machine);
  EXPECT_TRUE(Has(json, "\n}\r\n") &&
              Has(json, R"("pnpId": "PCI\\VEN_8086&DEV_15B8\\3&11583659&0&FE",)") &&
              Has(json, R"("description": "Intel \"Pro\"\u0009x\\y caf)"))
      << json.output;
  EXPECT_LT(0, MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, json.output.data(),
                                   static_cast<int>(json.output.size()), nullptr, 0));
}

// The two runs may straddle a second, and a new record is stamped with the
// time it was built.
std::string WithoutBuildTime(const std::string& json) {
  return std::regex_replace(json, std::regex("[^\n]*\"(createTime|created)\"[^\n]*\n"), "");
}

TEST_F(KyguidCliTest, ACapturedMachineReplaysExactlyAndCaptureWritesNothingElse) {
  const std::string captured = m_temp.Path() + "\\captured.txt";
  const ProcessResult capture = Kyguid("capture --output " + captured);
  ASSERT_EQ(0u, capture.exitCode) << capture.output;
  EXPECT_EQ("", capture.output);
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(GuidDbPath().c_str()));
  EXPECT_EQ(0u, KyGuidTest::ReadWholeFile(captured).find("# kyguid capture of this machine"));
  for (const std::string command : {"inventory --json", "build", "explain --json"}) {
    const ProcessResult live = Kyguid(command);
    EXPECT_EQ(WithoutBuildTime(live.output),
              WithoutBuildTime(Kyguid(command + " --machine " + captured).output))
        << command;
  }
}

// A disk of a machine file by its descriptor; `serialAt` overrides the serial's offset.
std::string Descriptor(const std::string& vendor, const std::string& model,
                       const std::string& revision, const std::string& serial, uint32_t bus,
                       bool removable, uint32_t serialAt = 0) {
  std::vector<uint8_t> bytes =
      KyGuidSim::SimulatedMachine::Descriptor(vendor, model, revision, serial, bus, removable);
  if (serialAt) memcpy(&bytes[24], &serialAt, sizeof(serialAt));
  return "descriptor = " + KyGuidUtils::BytesToHex(bytes.data(), bytes.size());
}

// What real drives answer, as Windows hands it over: the detail text the
// library makes of each, cleaned as the records require.
TEST_F(KyguidCliTest, RealDeviceAnswersBecomeTheRecordsTheLibraryExpects) {
  const std::vector<uint8_t> identify = KyGuidSim::SimulatedMachine::Identify(
      "Samsung SSD 860 EVO 500GB", "   S3Z9NB0K123456", std::string("1.0\0\0\0\0\0", 8));
  const struct {
    std::string keys;
    const char* detail;
  } disks[] = {
      {Descriptor("", "Samsung SSD 980 PRO 1TB", "5B2QGXA7", "ACE4_2E61_9000_7804.", 17, false),
       "PID:{Samsung SSD 980 PRO 1TB}VID:{}Rev:{5B2QGXA7}SN:{ACE4_2E61_9000_7804.}Sys:{0}Move:{0}"
       "Bus:{17}Score:{100}"},
      {Descriptor("ATA     ", "WDC WD10EZEX-00BBHA0 ", "01.01A01", "     WD-WCC6Y1LXTHFN", 11,
                  false),
       "PID:{WDC WD10EZEX-00BBHA0}VID:{ATA}Rev:{01.01A01}SN:{WD-WCC6Y1LXTHFN}Sys:{0}Move:{0}"
       "Bus:{11}Score:{100}"},
      {Descriptor("", "ST1000DM010-2EP102", "CC43", "395a314132423343", 8, false),
       "PID:{ST1000DM010-2EP102}VID:{}Rev:{CC43}SN:{Z9A1B2C3}Sys:{0}Move:{0}Bus:{8}Score:{100}"},
      {Descriptor("JMicron", "Generic", "0508", "", 7, true),
       "PID:{Generic}VID:{JMicron}Rev:{0508}SN:{}Sys:{0}Move:{1}Bus:{7}Score:{35}"},
      {Descriptor("Msft", "Virtual Disk", "1.0", "60022480", 14, false),
       "PID:{Virtual Disk}VID:{Msft}Rev:{1.0}SN:{60022480}Sys:{0}Move:{0}Bus:{14}Score:{75}"},
      {Descriptor("", "QEMU HARDDISK", "2.5+", "", 15, false, 5000),
       "PID:{QEMU HARDDISK}VID:{}Rev:{2.5+}SN:{}Sys:{0}Move:{0}Bus:{15}Score:{65}"},
      {Descriptor("", "Offset Past End", "1", "", 11, false, 200),
       "PID:{Offset Past End}VID:{}Rev:{1}SN:{}Sys:{0}Move:{0}Bus:{11}Score:{90}"},
      // Only IDENTIFY: the SMART fallback gives serial, model and revision.
      {"identify = " + KyGuidUtils::BytesToHex(identify.data(), identify.size()),
       "PID:{Samsung SSD 860 EVO 500GB}VID:{}Rev:{1.0}SN:{S3Z9NB0K123456}Sys:{0}Move:{0}"
       "Bus:{11}Score:{100}"},
  };
  std::string machine;
  for (size_t i = 0; i < std::size(disks); ++i) {
    machine += "[disk " + std::to_string(i) + "]\n" + disks[i].keys + "\n";
  }
  const ProcessResult json = OnMachine("inventory --json", machine);
  for (size_t i = 0; i < std::size(disks); ++i) {
    const std::string detail = "\"detail\": \"DID:{" + std::to_string(i) + "}" + disks[i].detail;
    EXPECT_TRUE(Has(json, detail)) << detail << json.output;
  }
}

TEST_F(KyguidCliTest, EachFailureHasItsExitCodeAndOneSentence) {
  const std::string dir = MachineProfileDir(), badMachine = m_temp.Path() + "\\bad.txt";
  KyGuidTest::WriteWholeFile(badMachine, "[disk 0]\nmodel = X\ndescriptor = 28 00 00 00\n");
  KyGuidTest::MakeDirs(dir.substr(0, dir.rfind('\\')));
  RemoveDirectoryA(dir.c_str());
  KyGuidTest::WriteWholeFile(dir, "a file where the data folder belongs");
  const std::string noDll = KyGuidTest::ExecutableDir() + "\\nodll";
  CreateDirectoryA(noDll.c_str(), nullptr);
  CopyFileA((KyGuidTest::ExecutableDir() + "\\kyguid.exe").c_str(),
            (noDll + "\\kyguid.exe").c_str(), FALSE);
  const std::pair<std::string, std::string> calls[] = {
      // with --json too: nothing else on stdout
      {"read --json", "1 kyguid: there is no machine GUID yet (no valid Guid.db)."},
      {"history --json", "1 kyguid: there is no Guid.db yet in " + dir + "; an update creates it."},
      {"legacy",
       "1 kyguid: there are no legacy files (GlobalMgr.db and the others) in " + dir + "."},
      {"frobnicate", "2 kyguid: unknown command 'frobnicate'; try kyguid --help."},
      {"history --machine m.txt",
       "2 kyguid: --machine works only with inventory, build and explain, not with history."},
      {"build", "3 kyguid: KyGuid64.dll could not be loaded from the tool's folder."},
      {"inventory --machine=C:\\no\\such.txt",
       "4 kyguid: the machine file C:\\no\\such.txt cannot be read."},
      {"explain --json --machine " + badMachine,
       "4 kyguid: the machine file " + badMachine +
           " has an error in line 3: 'descriptor' cannot stand beside model, serial, revision, "
           "vendor, bus or removable: the descriptor gives them itself."},
      {"update",
       "5 kyguid: the data folder " + dir + " is not writable, so no update can be saved."},
  };
  for (const auto& [arguments, expected] : calls) {
    const ProcessResult result = KyGuidTest::RunProcess(
        (expected[0] == '3' ? "nodll\\kyguid.exe " : "kyguid.exe ") + arguments);
    EXPECT_EQ(expected + "\r\n", std::to_string(result.exitCode) + " " + result.output);
  }
  DeleteFileA(dir.c_str());
  DeleteFileA((noDll + "\\kyguid.exe").c_str());
  RemoveDirectoryA(noDll.c_str());

  const ProcessResult bare = KyGuidTest::RunProcess("kyguid.exe");
  EXPECT_TRUE(bare.exitCode == 2 && bare.output.find("usage: kyguid <command>") == 0)
      << bare.output;
}

}  // namespace
