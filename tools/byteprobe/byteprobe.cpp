// Runs fixed update stories on simulated machines through the updater's
// interface and prints, after each, every file the library left and every
// log line, stuck-monitor marker and report it made. Two builds of the
// library give the same output exactly when a change left every byte a
// client can see as it was (tools/byteprobe.sh compares two revisions).
// What differs from run to run is masked: log times, source line numbers,
// the random GUID and what is derived from it.
//
//   byteprobe.exe <empty folder>
#include <windows.h>
#include <shlobj.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "common/md5.h"
#include "kyguidlib/cguidupdater.h"
// tools/byteprobe.sh builds this probe against older revisions as well,
// from before the header had its present name.
#if __has_include("kyguidlib/platform_override.h")
#include "kyguidlib/platform_override.h"
#else
#include "kyguidlib/platform_testing.h"
#endif
#include "tools/simmachine/simulatedmachine.h"

namespace {

using KyGuidSim::SimulatedMachine;

constexpr int64_t kProbeTime = 1795000000;

class ProbeFolders final : public KyGuid::IFolders {
 public:
  explicit ProbeFolders(const std::string& root) : m_root(root) {}
  bool GetFolder(int csidl, std::wstring& path) override {
    const std::string folder = m_root + ((csidl & 0xFF) == 0x23 ? "\\common" : "\\user");
    CreateDirectoryA(folder.c_str(), nullptr);
    path.assign(folder.begin(), folder.end());
    return true;
  }

 private:
  std::string m_root;
};

class ProbeClock final : public KyGuidUtils::IClock {
 public:
  int64_t Now() override { return kProbeTime; }
};

class ProbeTicks final : public KyGuid::ITickSource {
 public:
  uint32_t GetTickCount() override { return 1000; }
};

class ProbeUpdater final : public KyGuid::CGuidUpdater {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

std::string Environment(const char* name) {
  char value[MAX_PATH] = {};
  const DWORD length = GetEnvironmentVariableA(name, value, MAX_PATH);
  return std::string(value, length < MAX_PATH ? length : 0);
}

// A file of the data folder; its folders are created.
std::string DataFile(const char* variable) {
  const std::string path = Environment(variable);
  SHCreateDirectoryExA(nullptr, path.substr(0, path.rfind('\\')).c_str(), nullptr);
  return path;
}

std::string ReadAll(const std::string& path) {
  std::string content;
  HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return content;
  char buffer[65536];
  DWORD read = 0;
  while (ReadFile(file, buffer, sizeof(buffer), &read, nullptr) && read > 0) {
    content.append(buffer, read);
  }
  CloseHandle(file);
  return content;
}

void RemoveTree(const std::string& path) {
  WIN32_FIND_DATAA data;
  HANDLE find = FindFirstFileA((path + "\\*").c_str(), &data);
  if (find != INVALID_HANDLE_VALUE) {
    do {
      const std::string name = data.cFileName;
      if (name == "." || name == "..") continue;
      const std::string child = path + "\\" + name;
      SetFileAttributesA(child.c_str(), FILE_ATTRIBUTE_NORMAL);
      if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        RemoveTree(child);
      } else {
        DeleteFileA(child.c_str());
      }
    } while (FindNextFileA(find, &data));
    FindClose(find);
  }
  RemoveDirectoryA(path.c_str());
}

// Every file below `folder`, sorted by path, with its bytes; a folder shows
// as such.
void ListTree(const std::string& root, const std::string& relative, std::vector<std::string>& out) {
  WIN32_FIND_DATAA data;
  const std::string folder = relative.empty() ? root : root + "\\" + relative;
  HANDLE find = FindFirstFileA((folder + "\\*").c_str(), &data);
  if (find == INVALID_HANDLE_VALUE) return;
  std::vector<std::string> names;
  do {
    const std::string name = data.cFileName;
    if (name != "." && name != "..") names.push_back(name);
  } while (FindNextFileA(find, &data));
  FindClose(find);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    const std::string child = relative.empty() ? name : relative + "\\" + name;
    const DWORD attributes = GetFileAttributesA((root + "\\" + child).c_str());
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
      out.push_back("## " + child + "\\");
      ListTree(root, child, out);
    } else {
      out.push_back("## " + child + (attributes & FILE_ATTRIBUTE_READONLY ? " (read-only)" : ""));
      out.push_back(ReadAll(root + "\\" + child));
    }
  }
}

std::string Escape(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (c == '\n' || (c >= 0x20 && c < 0x7F)) {
      out += static_cast<char>(c);
    } else {
      char escaped[8];
      snprintf(escaped, sizeof(escaped), "\\x%02X", c);
      out += escaped;
    }
  }
  return out;
}

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  if (from.empty()) return;
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

// "2026-11-24 10:00:00.123 INFO [...] F (file:123) err=0: text": the time,
// the source line and the last-write times of files go.
std::string MaskLogLine(const std::string& line) {
  std::string masked = line.size() > 24 ? line.substr(24) : line;
  const std::string stamp = "timestamp=";
  const size_t time = masked.find(stamp);
  if (time != std::string::npos && masked.compare(time + stamp.size(), 2, "0,") != 0) {
    const size_t end = masked.find(',', time);
    masked.replace(time + stamp.size(), end - time - stamp.size(), "T");
  }
  const size_t close = masked.find(") err=");
  const size_t colon = masked.rfind(':', close);
  if (close != std::string::npos && colon != std::string::npos) {
    masked.replace(colon + 1, close - colon - 1, "L");
  }
  return masked;
}

class Probe {
 public:
  explicit Probe(const std::string& root) : m_root(root) {
    SetEnvironmentVariableA("KYLOGEX_FILE", (m_root + "\\log.txt").c_str());
    SetEnvironmentVariableA("KYLOGEX_LEVEL", "6");
    SetEnvironmentVariableA("KYSTUCK_FILE", (m_root + "\\stuck.txt").c_str());
    SetEnvironmentVariableA("KYREPORT_FILE", (m_root + "\\reports.txt").c_str());
  }

  // Runs `story` in a fresh data folder tree unless `keep` and prints what
  // it left.
  void Story(const char* name, SimulatedMachine& machine, bool keep,
             const std::function<void(ProbeUpdater&)>& story) {
    const std::string data = m_root + "\\data";
    if (!keep) {
      RemoveTree(data);
      CreateDirectoryA(data.c_str(), nullptr);
    }
    for (const char* file : {"\\log.txt", "\\stuck.txt", "\\reports.txt"}) {
      DeleteFileA((m_root + file).c_str());
    }
    {
      ProbeFolders folders(data);
      KyGuid::ScopedPlatform platform(KyGuid::Platform{&folders, &m_ticks, &machine, &m_clock});
      ProbeUpdater updater;
      story(updater);
    }
    std::vector<std::string> files;
    ListTree(data, "", files);
    std::string text = std::string("==== ") + name + "\n-- files\n";
    for (const std::string& entry : files) text += entry + "\n";
    text += "-- log\n";
    std::string log = ReadAll(m_root + "\\log.txt");
    for (size_t start = 0, end; start < log.size(); start = end + 1) {
      end = log.find('\n', start);
      if (end == std::string::npos) end = log.size();
      std::string line = log.substr(start, end - start);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      text += MaskLogLine(line) + "\n";
    }
    text += "-- stuck\n" + ReadAll(m_root + "\\stuck.txt");
    text += "-- reports\n" + ReadAll(m_root + "\\reports.txt");
    MaskRandomGuids(data, text);
    fputs(Escape(text).c_str(), stdout);
  }

 private:
  // The machine's random GUIDs and the virtual GUIDs made from them,
  // wherever they stand.
  void MaskRandomGuids(const std::string& data, std::string& text) {
    const std::string guidDb = data + "\\common\\Corvane\\Greibraske\\Guid.db";
    char random[64] = {};
    GetPrivateProfileStringA("RandGuid", "Guid", "", random, sizeof(random), guidDb.c_str());
    ReplaceAll(text, random, "<random>");
    for (const char* field : {"rand_guid", "virt_guid"}) {
      for (const std::string& marker :
           {std::string("\"") + field + "\":\"", std::string(field) + "="}) {
        for (size_t at = 0; (at = text.find(marker, at)) != std::string::npos; ++at) {
          const std::string value = text.substr(at + marker.size(), 32);
          if (value.find('<') == std::string::npos) ReplaceAll(text, value, "<random>");
        }
      }
    }
  }

  std::string m_root;
  ProbeClock m_clock;
  ProbeTicks m_ticks;
};

void AddDesktop(SimulatedMachine& machine) {
  machine.AddDrive(0).descriptor = SimulatedMachine::Descriptor(
      "", "Samsung SSD 970 EVO Plus 1TB", "2B2QEXM7", "S4EWNX0R123456", 17, false);
  KyGuidSim::SimDrive& boot = machine.AddDrive(1);
  boot.descriptor = SimulatedMachine::Descriptor("ATA", "ST1000DM010", "", "", 3, false);
  boot.identify = SimulatedMachine::Identify("ST1000DM010-2EP102", "Z9A1B2C3", "CC43");
  machine.AddVolume(L'C').extents = SimulatedMachine::Extents({{1, 1ull << 30}});
  machine
      .AddAdapter("{NIC-0}", "USB 3.0 to Gigabit Ethernet Adapter", {0, 0x1A, 0x2B, 0x3C, 0x4D, 0})
      .pnpId = "USB\\VID_0B95\\1";
  auto& wifi = machine.AddAdapter("{NIC-1}", "Intel(R) Wi-Fi 6 AX201 160MHz",
                                  {0, 0x1A, 0x2B, 0x3C, 0x4D, 1});
  wifi.type = 71;
  wifi.pnpId = "PCI\\VEN_8086&DEV_A0F0\\3";
  machine
      .AddAdapter("{NIC-2}", "Intel(R) Ethernet Connection (7) I219-V",
                  {0, 0x1A, 0x2B, 0x3C, 0x4D, 2})
      .pnpId = "PCI\\VEN_8086&DEV_15BC\\3";
  machine.processorBrand.assign(48, 0);
  const char brand[] = "  Intel(R) Core(TM) i7-8700 CPU @ 3.20GHz";
  std::copy(brand, brand + sizeof(brand) - 1, machine.processorBrand.begin());
}

// The same desktop after its boot disk and its wired adapter were replaced.
void AddChangedDesktop(SimulatedMachine& machine) {
  machine.AddDrive(0).descriptor = SimulatedMachine::Descriptor(
      "", "WDC WD10EZEX-08WN4A0", "01.01A01", "WD-WCC6Y0000001", 11, false);
  machine.AddVolume(L'C').extents = SimulatedMachine::Extents({{0, 1ull << 30}});
  machine
      .AddAdapter("{NIC-9}", "Realtek PCIe GbE Family Controller", {0, 0x0A, 0x0B, 0x0C, 0x0D, 9})
      .pnpId = "PCI\\VEN_10EC&DEV_8168\\4";
}

// One desktop's life: first build, unchanged, a new processor, new disk and
// adapter, Guid.db lost.
void RunDesktopStories(Probe& probe) {
  SimulatedMachine desktop;
  AddDesktop(desktop);
  probe.Story("first build, synchronous", desktop, false, [](ProbeUpdater& updater) {
    WritePrivateProfileStringA("Profile", "config1", "another GUID",
                               DataFile("BYTEPROBE_USER_GLOBALMGR").c_str());
    updater.UpdateNow();
  });
  probe.Story("unchanged machine, synchronous", desktop, true,
              [](ProbeUpdater& updater) { updater.UpdateNow(); });
  probe.Story("background update sends the cached report", desktop, true,
              [](ProbeUpdater& updater) {
                updater.StartUpdate();
                updater.StopUpdate();
              });
  SimulatedMachine otherCpu;
  AddDesktop(otherCpu);
  otherCpu.processorBrand.assign(48, 0);
  otherCpu.processorBrand[0] = 'X';
  probe.Story("new processor: legacy refresh, GUID kept", otherCpu, true,
              [](ProbeUpdater& updater) { updater.UpdateNow(); });
  SimulatedMachine changed;
  AddChangedDesktop(changed);
  probe.Story("disk and adapter replaced: rebuild", changed, true,
              [](ProbeUpdater& updater) { updater.UpdateNow(); });
  probe.Story("Guid.db lost: adopted back", changed, true, [](ProbeUpdater& updater) {
    DeleteFileA(DataFile("BYTEPROBE_GUID_DB").c_str());
    updater.UpdateNow();
  });
  probe.Story("build now writes nothing", changed, true, [](ProbeUpdater& updater) {
    char guid[33] = {};
    updater.BuildGuidNow(guid, sizeof(guid));
    printf("build now: %s\n", guid);
  });
}

// The legacy scheme's GUID, no hardware, and files an update cannot write.
void RunEdgeStories(Probe& probe) {
  SimulatedMachine desktop;
  AddDesktop(desktop);
  // The legacy scheme's GUID bound by its MAC, on a machine whose drive
  // answers no legacy read: the random drive identity is made up.
  SimulatedMachine legacy;
  legacy.AddDrive(0).descriptor = SimulatedMachine::Descriptor("", "", "", "", 1, false);
  legacy.AddAdapter("{LEG}", "Ethernet", {0, 0x11, 0x22, 0xAA, 0xBB, 0xCC}).pnpId = "PCI\\L";
  legacy.processorBrand.assign(48, 'L');
  probe.Story("ancient GUID adopted", legacy, false, [](ProbeUpdater& updater) {
    const std::string path = DataFile("BYTEPROBE_GLOBALMGR");
    WritePrivateProfileStringA("Profile", "config1", "0123456789abcdef0123456789abcdef",
                               path.c_str());
    WritePrivateProfileStringA("Profile", "config2", KyGuidUtils::Md5Hex("001122aabbcc").c_str(),
                               path.c_str());
    updater.UpdateNow();
    updater.StartUpdate();
    updater.StopUpdate();
  });

  SimulatedMachine empty;
  probe.Story("no hardware: special GUID", empty, false,
              [](ProbeUpdater& updater) { updater.UpdateNow(); });

  probe.Story("read-only Guid.db", desktop, false, [](ProbeUpdater& updater) {
    const std::string path = DataFile("BYTEPROBE_GUID_DB");
    WritePrivateProfileStringA("ActiveGuid", "Guid", "0123456789abcdef0123456789abcdef",
                               path.c_str());
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
    updater.UpdateNow();
  });
  probe.Story("a folder named Guid.db", desktop, false, [](ProbeUpdater& updater) {
    CreateDirectoryA(DataFile("BYTEPROBE_GUID_DB").c_str(), nullptr);
    updater.UpdateNow();
  });
}

void Run(Probe& probe) {
  RunDesktopStories(probe);
  RunEdgeStories(probe);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: byteprobe <empty folder>\n");
    return 2;
  }
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  const std::string root = argv[1];
  CreateDirectoryA(root.c_str(), nullptr);
  const std::string profile = root + "\\data\\common\\Corvane\\Greibraske";
  SetEnvironmentVariableA("BYTEPROBE_GUID_DB", (profile + "\\Guid.db").c_str());
  SetEnvironmentVariableA("BYTEPROBE_GLOBALMGR", (profile + "\\GlobalMgr.db").c_str());
  SetEnvironmentVariableA("BYTEPROBE_USER_GLOBALMGR",
                          (root + "\\data\\user\\Corvane\\Greibraske\\GlobalMgr.db").c_str());
  Probe probe(root);
  Run(probe);
  return 0;
}
