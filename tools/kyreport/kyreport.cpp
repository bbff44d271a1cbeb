// A stand-in for the suite's reporting module, for development and tests.
// Every report it is handed becomes one JSON line, appended to the file named
// by KYREPORT_FILE, else to KyReport.jsonl beside this module:
//
//   {"business":"KyGuid","fields":{"update_result":"1",...,"process_name":"kyguid"}}
//
// Field names and values are JSON strings, in the order delivered. They are
// ANSI bytes, not UTF-8, so the line is kept plain ASCII: '"' and '\' are
// escaped, \n \r \t keep their short forms, and every other byte below 0x20,
// 0x7F and every byte from 0x80 up is written as \u00XX, one escape per byte.
// Reading each \u00XX back as the byte XX gives the exact text delivered.
//
// KYREPORT_FAULT=init|send makes that call fault, for tests of the library's
// fault containment. Nothing here has a destructor that runs at exit.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "common/strutil.h"
#include "kyguidlib/kyreportapi.h"

namespace {

KyReportTraceFn g_trace = nullptr;

std::string EnvironmentValue(const char* name) {
  char value[MAX_PATH] = {};
  DWORD length = GetEnvironmentVariableA(name, value, MAX_PATH);
  return length > 0 && length < MAX_PATH ? std::string(value, length) : std::string();
}

void FaultIfAsked(const char* call) {
  if (EnvironmentValue("KYREPORT_FAULT") == call) {
    *static_cast<volatile int*>(nullptr) = 0;
  }
}

std::string OutputPath() {
  std::string path = EnvironmentValue("KYREPORT_FILE");
  if (!path.empty()) return path;
  HMODULE self = nullptr;
  GetModuleHandleExA(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCSTR>(&OutputPath), &self);
  char module[MAX_PATH] = {};
  DWORD length = GetModuleFileNameA(self, module, MAX_PATH);
  path.assign(module, length < MAX_PATH ? length : 0);
  size_t slash = path.find_last_of('\\');
  path.erase(slash == std::string::npos ? 0 : slash + 1);
  return path + "KyReport.jsonl";
}

void AppendJsonString(std::string& out, const char* text) {
  out += '"';
  for (const unsigned char* c = reinterpret_cast<const unsigned char*>(text ? text : ""); *c; ++c) {
    switch (*c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (*c < 0x20 || *c >= 0x7F) {
          out += "\\u00" + KyGuidUtils::BytesToHex(c, 1);
        } else {
          out += static_cast<char>(*c);
        }
    }
  }
  out += '"';
}

bool AppendLine(const std::string& line) {
  HANDLE file =
      CreateFileA(OutputPath().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  // One write per line: reports sent from two threads never interleave.
  DWORD written = 0;
  bool ok = WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr) &&
            written == line.size();
  CloseHandle(file);
  return ok;
}

}  // namespace

extern "C" int32_t __cdecl KyReportInit(uint32_t interfaceVersion, KyReportTraceFn trace) {
  FaultIfAsked("init");
  if (interfaceVersion != KyReportMgr::kReportInterfaceVersion) return 0;
  g_trace = trace;
  return 1;
}

extern "C" int32_t __cdecl KyReportSend(const char* business, const char* const* keys,
                                        const char* const* values, uint32_t count) {
  FaultIfAsked("send");
  if (!business || (count > 0 && (!keys || !values))) return 0;
  std::string line = "{\"business\":";
  AppendJsonString(line, business);
  line += ",\"fields\":{";
  for (uint32_t i = 0; i < count; ++i) {
    if (i > 0) line += ',';
    AppendJsonString(line, keys[i]);
    line += ':';
    AppendJsonString(line, values[i]);
  }
  line += "}}\n";
  const bool written = AppendLine(line);
  if (g_trace)
    g_trace("report %s with %u fields %s", business, count, written ? "written" : "lost");
  return written ? 1 : 0;
}
