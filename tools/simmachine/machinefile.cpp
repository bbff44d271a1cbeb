#include "tools/simmachine/machinefile.h"

#include <algorithm>
#include <set>

#include "common/strutil.h"

namespace KyGuidSim {
namespace {

constexpr int kMaxDrive = 15;       // the disk fetcher looks at drives 0-15
constexpr size_t kMaxMacBytes = 8;  // what IP_ADAPTER_INFO can carry
// A storage device descriptor holds at least its version and size fields,
// and the disk fetcher reads at most 4096 bytes of it.
constexpr size_t kMinDescriptor = 8;
constexpr size_t kMaxDescriptor = 4096;
constexpr size_t kIdentifySize = 512;
constexpr size_t kLanaMacBytes = 6;  // ADAPTER_STATUS.adapter_address
constexpr size_t kBrandBytes = 48;   // CPUID 0x80000002-0x80000004

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

// A value in double quotes keeps the blanks at its ends, which a device
// string may have; the quotes themselves are not part of it.
std::string Unquote(const std::string& value) {
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
    return value.substr(1, value.size() - 2);
  }
  return value;
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

// Pairs of hex digits, blanks allowed between pairs: the form capture writes
// device answers in.
bool ParseHexBytes(const std::string& text, std::vector<uint8_t>& bytes) {
  bytes.clear();
  for (size_t i = 0; i < text.size();) {
    if (text[i] == ' ' || text[i] == '\t') {
      ++i;
      continue;
    }
    if (i + 1 >= text.size() || !KyGuidUtils::IsHexDigit(text[i]) ||
        !KyGuidUtils::IsHexDigit(text[i + 1])) {
      return false;
    }
    bytes.push_back(static_cast<uint8_t>(KyGuidUtils::HexValue(text[i]) * 16 +
                                         KyGuidUtils::HexValue(text[i + 1])));
    i += 2;
  }
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
  return ParseHexBytes(digits, mac);
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
                 Unquote(Trim(line.substr(equals + 1))));
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
    if (m_kind == Kind::kLana && m_machine.lanas.back().mac.empty()) {
      m_problemLine = m_machine.lanas.back().line;
      return "lana " + std::to_string(m_machine.lanas.back().number) + " has no mac";
    }
    return std::string();
  }

  int ProblemLine() const { return m_problemLine; }

 private:
  enum class Kind { kNone, kDisk, kAdapter, kScsi, kLana, kProcessor };

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
    if (kind == "scsi") return StartNumbered(Kind::kScsi, name, number, m_scsiPorts, "scsi");
    if (kind == "lana") return StartNumbered(Kind::kLana, name, number, m_lanaNumbers, "lana");
    if (kind == "processor" && name.empty()) {
      if (m_processorSeen) return "[processor] is given twice";
      m_processorSeen = true;
      m_kind = Kind::kProcessor;
      return std::string();
    }
    return "unknown section '" + line +
           "'; expected [disk N], [adapter NAME], [scsi N], [lana N] or [processor]";
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

  // [scsi N] and [lana N]: N from 0 to 15, each once.
  std::string StartNumbered(Kind kind, const std::string& name, int line, std::set<int>& seen,
                            const char* what) {
    uint64_t number = 0;
    if (!ParseUnsigned(name, kMaxDrive, number)) {
      return std::string("a ") + what + " section needs a number from 0 to 15, as in [" + what +
             " 0]";
    }
    if (!seen.insert(static_cast<int>(number)).second) {
      return std::string(what) + " " + name + " is described twice";
    }
    if (kind == Kind::kScsi) {
      m_machine.scsiPorts.emplace_back();
      m_machine.scsiPorts.back().number = static_cast<int>(number);
    } else {
      m_machine.lanas.emplace_back();
      m_machine.lanas.back().number = static_cast<int>(number);
      m_machine.lanas.back().line = line;
    }
    m_kind = kind;
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
    if (m_kind == Kind::kDisk && DescriptorConflict(key)) {
      return key == "descriptor"
                 ? "'descriptor' cannot stand beside model, serial, revision, vendor, bus or "
                   "removable: the descriptor gives them itself"
                 : "'" + key + "' cannot stand beside 'descriptor', which gives it itself";
    }
    switch (m_kind) {
      case Kind::kDisk:
        return DiskValue(m_machine.disks.back(), key, value);
      case Kind::kAdapter:
        return AdapterValue(m_machine.adapters.back(), key, value);
      case Kind::kScsi:
        return ScsiValue(m_machine.scsiPorts.back(), key, value);
      case Kind::kLana:
        return LanaValue(m_machine.lanas.back(), key, value);
      default:
        return ProcessorValue(key, value);
    }
  }

  // Whether `key` and another key of the section both say what the
  // descriptor says.
  bool DescriptorConflict(const std::string& key) const {
    static const std::set<std::string> kDescribed = {"model",  "serial", "revision",
                                                     "vendor", "bus",    "removable"};
    if (key == "descriptor") {
      return std::any_of(kDescribed.begin(), kDescribed.end(),
                         [this](const std::string& name) { return m_keys.count(name) != 0; });
    }
    return kDescribed.count(key) != 0 && m_keys.count("descriptor") != 0;
  }

  static std::string DiskValue(MachineDisk& disk, const std::string& key,
                               const std::string& value) {
    if (key == "descriptor") {
      if (!ParseHexBytes(value, disk.descriptor) || disk.descriptor.size() < kMinDescriptor ||
          disk.descriptor.size() > kMaxDescriptor) {
        return "descriptor must be 8 to 4096 bytes as pairs of hex digits";
      }
    } else if (key == "identify") {
      if (!ParseHexBytes(value, disk.identify) || disk.identify.size() != kIdentifySize) {
        return "identify must be exactly 512 bytes as pairs of hex digits";
      }
    } else if (key == "idemap") {
      uint64_t map = 0;
      if (!ParseUnsigned(value, 255, map)) return "idemap must be a number from 0 to 255";
      disk.ideDeviceMap = static_cast<uint8_t>(map);
    } else if (key == "model") {
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
             "'; disk keys are model, serial, revision, vendor, bus, removable, system, "
             "descriptor, identify, idemap";
    }
    return std::string();
  }

  static std::string ScsiValue(MachineScsiPort& port, const std::string& key,
                               const std::string& value) {
    const int position = key == "identify0" ? 0 : key == "identify1" ? 1 : -1;
    if (position < 0) return "unknown scsi key '" + key + "'; scsi keys are identify0, identify1";
    if (!ParseHexBytes(value, port.identify[position]) ||
        port.identify[position].size() != kIdentifySize) {
      return key + " must be exactly 512 bytes as pairs of hex digits";
    }
    return std::string();
  }

  static std::string LanaValue(MachineLana& lana, const std::string& key,
                               const std::string& value) {
    if (key != "mac") return "unknown lana key '" + key + "'; the lana key is mac";
    if (!ParseMac(value, lana.mac) || lana.mac.size() != kLanaMacBytes) {
      return "mac must be 6 bytes of hex digits such as 00-11-22-aa-bb-cc, not '" + value + "'";
    }
    return std::string();
  }

  std::string ProcessorValue(const std::string& key, const std::string& value) {
    if (key != "brand") return "unknown processor key '" + key + "'; the processor key is brand";
    if (!ParseHexBytes(value, m_machine.processorBrand) ||
        m_machine.processorBrand.size() != kBrandBytes) {
      return "brand must be exactly 48 bytes as pairs of hex digits";
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
  std::set<int> m_scsiPorts;
  std::set<int> m_lanaNumbers;
  bool m_processorSeen = false;
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
    while (!line.empty() && line.back() == '\r') line.pop_back();
    const std::string message = parser.Line(line, ++number);
    if (!message.empty()) return Fail(error, parser.ProblemLine(), message);
    start = end + 1;
  }
  const std::string message = parser.EndSection();
  return message.empty() || Fail(error, parser.ProblemLine(), message);
}

namespace {

// Hex digit pairs, separated as MAC addresses (by '-') or as device answers
// (by blanks).
std::string Hex(const std::vector<uint8_t>& bytes, char separator = ' ') {
  std::string text;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0) text += separator;
    text += KyGuidUtils::BytesToHex(&bytes[i], 1);
  }
  return text;
}

std::string Quoted(const std::string& value) {
  auto lost = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
  const bool needed =
      !value.empty() && (lost(value.front()) || lost(value.back()) || value.front() == '"');
  return needed ? "\"" + value + "\"" : value;
}

void Key(std::string& text, const char* key, const std::string& value) {
  text += key;
  text += " = ";
  text += value;
  text += '\n';
}

}  // namespace

std::string WriteMachineFile(const MachineFile& machine) {
  std::string text;
  for (const MachineDisk& disk : machine.disks) {
    text += "\n[disk " + std::to_string(disk.number) + "]\n";
    if (disk.descriptor.empty()) {
      Key(text, "model", Quoted(disk.model));
      Key(text, "serial", Quoted(disk.serial));
      Key(text, "revision", Quoted(disk.revision));
      Key(text, "vendor", Quoted(disk.vendor));
      Key(text, "bus", std::to_string(disk.bus));
      Key(text, "removable", disk.removable ? "yes" : "no");
    } else {
      Key(text, "descriptor", Hex(disk.descriptor));
    }
    if (!disk.identify.empty()) Key(text, "identify", Hex(disk.identify));
    Key(text, "idemap", std::to_string(disk.ideDeviceMap));
    Key(text, "system", disk.system ? "yes" : "no");
  }
  for (const MachineScsiPort& port : machine.scsiPorts) {
    text += "\n[scsi " + std::to_string(port.number) + "]\n";
    if (!port.identify[0].empty()) Key(text, "identify0", Hex(port.identify[0]));
    if (!port.identify[1].empty()) Key(text, "identify1", Hex(port.identify[1]));
  }
  for (const MachineAdapter& adapter : machine.adapters) {
    text += "\n[adapter " + adapter.name + "]\n";
    Key(text, "description", Quoted(adapter.description));
    Key(text, "mac", Hex(adapter.mac, '-'));
    Key(text, "type", std::to_string(adapter.type));
    if (adapter.index >= 0) Key(text, "index", std::to_string(adapter.index));
    if (!adapter.pnpId.empty()) Key(text, "pnp", Quoted(adapter.pnpId));
    if (adapter.mediaSubType >= 0) Key(text, "mediasubtype", std::to_string(adapter.mediaSubType));
    Key(text, "present", adapter.present ? "yes" : "no");
    Key(text, "wmi", adapter.knownToWmi ? "yes" : "no");
  }
  for (const MachineLana& lana : machine.lanas) {
    text += "\n[lana " + std::to_string(lana.number) + "]\n";
    Key(text, "mac", Hex(lana.mac, '-'));
  }
  if (!machine.processorBrand.empty()) {
    text += "\n[processor]\n";
    Key(text, "brand", Hex(machine.processorBrand));
  }
  return text;
}

}  // namespace KyGuidSim
