#include "tools/simmachine/machinefile.h"

#include <set>

#include "common/strutil.h"

namespace KyGuidSim {
namespace {

constexpr int kMaxDrive = 15;       // the disk fetcher looks at drives 0-15
constexpr size_t kMaxMacBytes = 8;  // what IP_ADAPTER_INFO can carry

struct NamedNumber {
  const char* name;
  uint32_t value;
};

// The STORAGE_BUS_TYPE names an engineer is likely to write.
const NamedNumber kBusNames[] = {
    {"scsi", 1},
    {"atapi", 2},
    {"ata", 3},
    {"usb", 7},
    {"raid", 8},
    {"sas", 10},
    {"sata", 11},
    {"sd", 12},
    {"mmc", 13},
    {"virtual", 14},
    {"filebackedvirtual", 15},
    {"nvme", 17},
};
const NamedNumber kInterfaceTypes[] = {{"ethernet", 6}, {"ppp", 23}, {"wifi", 71}};

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

bool ParseUnsigned(const std::string& text, uint64_t max, uint64_t& value) {
  if (text.empty() || text.size() > 19) return false;
  value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  return value <= max;
}

bool ParseNamedNumber(const std::string& text, const NamedNumber* names, size_t count,
                      uint32_t& value) {
  const std::string lower = KyGuidUtils::ToLowerAscii(text);
  for (size_t i = 0; i < count; ++i) {
    if (lower == names[i].name) {
      value = names[i].value;
      return true;
    }
  }
  uint64_t number = 0;
  if (!ParseUnsigned(text, UINT32_MAX, number)) return false;
  value = static_cast<uint32_t>(number);
  return true;
}

bool ParseYesNo(const std::string& text, bool& value) {
  const std::string lower = KyGuidUtils::ToLowerAscii(text);
  if (lower == "yes" || lower == "true" || lower == "1") {
    value = true;
    return true;
  }
  if (lower == "no" || lower == "false" || lower == "0") {
    value = false;
    return true;
  }
  return false;
}

// Hex digit pairs, optionally separated by ':' or '-' as ipconfig and the
// adapter's own label print them.
bool ParseMac(const std::string& text, std::vector<uint8_t>& mac) {
  std::string digits;
  for (char c : text) {
    if (c == ':' || c == '-') continue;
    if (!KyGuidUtils::IsHexDigit(c)) return false;
    digits += c;
  }
  if (digits.empty() || digits.size() % 2 != 0 || digits.size() / 2 > kMaxMacBytes) return false;
  mac.clear();
  for (size_t i = 0; i < digits.size(); i += 2) {
    mac.push_back(static_cast<uint8_t>(KyGuidUtils::HexValue(digits[i]) * 16 +
                                       KyGuidUtils::HexValue(digits[i + 1])));
  }
  return true;
}

class Parser {
 public:
  explicit Parser(MachineFile& machine) : m_machine(machine) {}

  // An empty message means the line was understood; otherwise ProblemLine()
  // tells where the problem is.
  std::string Line(const std::string& raw, int number) {
    m_problemLine = number;
    const std::string line = Trim(raw);
    if (line.empty() || line[0] == '#' || line[0] == ';') return std::string();
    if (line[0] == '[') return Section(line, number);
    const size_t equals = line.find('=');
    if (equals == std::string::npos) {
      return "expected 'key = value' or a section head such as [disk 0], not '" + line + "'";
    }
    return Value(KyGuidUtils::ToLowerAscii(Trim(line.substr(0, equals))),
                 Trim(line.substr(equals + 1)));
  }

  // Checks what only the end of a section can tell.
  std::string EndSection() {
    if (m_kind == Kind::kAdapter) {
      MachineAdapter& adapter = m_machine.adapters.back();
      if (adapter.mac.empty()) {
        m_problemLine = adapter.line;
        return "adapter " + adapter.name + " has no mac";
      }
      if (!m_keys.count("wmi")) adapter.knownToWmi = adapter.present;
    }
    return std::string();
  }

  int ProblemLine() const { return m_problemLine; }

 private:
  enum class Kind { kNone, kDisk, kAdapter };

  std::string Section(const std::string& line, int number) {
    if (line.back() != ']') return "a section head must end with ']'";
    const std::string ended = EndSection();
    if (!ended.empty()) return ended;
    const std::string inner = Trim(line.substr(1, line.size() - 2));
    const size_t space = inner.find_first_of(" \t");
    const std::string kind = KyGuidUtils::ToLowerAscii(inner.substr(0, space));
    const std::string name = space == std::string::npos ? std::string() : Trim(inner.substr(space));
    m_keys.clear();
    if (kind == "disk") return StartDisk(name, number);
    if (kind == "adapter") return StartAdapter(name, number);
    return "unknown section '" + line + "'; expected [disk N] or [adapter NAME]";
  }

  std::string StartDisk(const std::string& name, int line) {
    uint64_t drive = 0;
    if (!ParseUnsigned(name, kMaxDrive, drive)) {
      return "a disk section needs a drive number from 0 to 15, as in [disk 0]";
    }
    if (!m_drives.insert(static_cast<int>(drive)).second) {
      return "disk " + name + " is described twice";
    }
    m_machine.disks.emplace_back();
    m_machine.disks.back().number = static_cast<int>(drive);
    m_machine.disks.back().line = line;
    m_kind = Kind::kDisk;
    return std::string();
  }

  std::string StartAdapter(const std::string& name, int line) {
    if (name.empty())
      return "an adapter section needs the adapter's GUID name, as in [adapter {...}]";
    m_machine.adapters.emplace_back();
    MachineAdapter& adapter = m_machine.adapters.back();
    adapter.name = name[0] == '{' ? name : "{" + name + "}";
    adapter.line = line;
    m_kind = Kind::kAdapter;
    return std::string();
  }

  std::string Value(const std::string& key, const std::string& value) {
    if (m_kind == Kind::kNone) {
      return "'" + key + "' comes before any [disk N] or [adapter NAME] section";
    }
    if (!m_keys.insert(key).second) return "'" + key + "' is given twice in one section";
    return m_kind == Kind::kDisk ? DiskValue(m_machine.disks.back(), key, value)
                                 : AdapterValue(m_machine.adapters.back(), key, value);
  }

  static std::string DiskValue(MachineDisk& disk, const std::string& key,
                               const std::string& value) {
    if (key == "model") {
      disk.model = value;
    } else if (key == "serial") {
      disk.serial = value;
    } else if (key == "revision") {
      disk.revision = value;
    } else if (key == "vendor") {
      disk.vendor = value;
    } else if (key == "bus") {
      if (!ParseNamedNumber(value, kBusNames, sizeof(kBusNames) / sizeof(kBusNames[0]), disk.bus)) {
        return "bus must be a number or one of scsi, ata, usb, raid, sas, sata, virtual, "
               "nvme, not '" +
               value + "'";
      }
    } else if (key == "removable" || key == "system") {
      if (!ParseYesNo(value, key == "system" ? disk.system : disk.removable)) {
        return key + " must be yes or no, not '" + value + "'";
      }
    } else {
      return "unknown disk key '" + key +
             "'; disk keys are model, serial, revision, vendor, bus, removable, system";
    }
    return std::string();
  }

  std::string AdapterValue(MachineAdapter& adapter, const std::string& key,
                           const std::string& value) {
    uint64_t number = 0;
    if (key == "description") {
      adapter.description = value;
    } else if (key == "mac") {
      if (!ParseMac(value, adapter.mac)) {
        return "mac must be 1 to 8 bytes of hex digits such as 00-11-22-aa-bb-cc, not '" + value +
               "'";
      }
    } else if (key == "pnp") {
      adapter.pnpId = value;
    } else if (key == "type") {
      if (!ParseNamedNumber(value, kInterfaceTypes,
                            sizeof(kInterfaceTypes) / sizeof(kInterfaceTypes[0]), adapter.type)) {
        return "type must be a number or one of ethernet, ppp, wifi, not '" + value + "'";
      }
    } else if (key == "index") {
      if (!ParseUnsigned(value, INT32_MAX, number)) {
        return "index must be a number, not '" + value + "'";
      }
      if (!m_indices.insert(static_cast<int>(number)).second) {
        return "index " + value + " is given to two adapters";
      }
      adapter.index = static_cast<int>(number);
    } else if (key == "mediasubtype") {
      if (!ParseUnsigned(value, UINT32_MAX, number)) {
        return "mediasubtype must be a number, not '" + value + "'";
      }
      adapter.mediaSubType = static_cast<int64_t>(number);
    } else if (key == "present" || key == "wmi") {
      if (!ParseYesNo(value, key == "present" ? adapter.present : adapter.knownToWmi)) {
        return key + " must be yes or no, not '" + value + "'";
      }
    } else {
      return "unknown adapter key '" + key +
             "'; adapter keys are description, mac, pnp, type, index, present, wmi, "
             "mediasubtype";
    }
    return std::string();
  }

  MachineFile& m_machine;
  Kind m_kind = Kind::kNone;
  std::set<std::string> m_keys;  // of the current section
  std::set<int> m_drives;
  std::set<int> m_indices;
  int m_problemLine = 0;
};

bool Fail(MachineFileError& error, int line, const std::string& message) {
  error.line = line;
  error.message = message;
  return false;
}

}  // namespace

bool ParseMachineFile(const std::string& text, MachineFile& machine, MachineFileError& error) {
  machine = MachineFile();
  Parser parser(machine);
  // Editors on Windows like to start a file with a byte order mark.
  size_t start = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  int number = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::string message = parser.Line(line, ++number);
    if (!message.empty()) return Fail(error, parser.ProblemLine(), message);
    start = end + 1;
  }
  const std::string message = parser.EndSection();
  return message.empty() || Fail(error, parser.ProblemLine(), message);
}

}  // namespace KyGuidSim
