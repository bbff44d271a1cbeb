// A stand-in for the suite's log module, for development and tests. It
// writes one line per record:
//
//   2026-11-22 15:04:05.123 INFO [KyGuid64.dll] Ns::Class::Method (ftcommon\...\file:87) err=0:
//   text
//
// Where: the file named by KYLOGEX_FILE, else KyLogEx.log in the directory
// handed to Init. Which levels: KYLOGEX_LEVEL (0-6), else "Level" of section
// "Log" in KyLogEx.ini beside the log file's default place, else 4 (INFO).
// KYLOGEX_FAULT=init|enabled|write makes that call fault, for tests of the
// library's fault containment.
#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>

#include "common/ikylog.h"

namespace {

constexpr uint32_t kDefaultLevel = 4;

std::string EnvironmentValue(const char* name) {
  char value[MAX_PATH] = {};
  DWORD length = GetEnvironmentVariableA(name, value, MAX_PATH);
  return length > 0 && length < MAX_PATH ? std::string(value, length) : std::string();
}

void FaultIfAsked(const char* call) {
  if (EnvironmentValue("KYLOGEX_FAULT") == call) {
    *static_cast<volatile int*>(nullptr) = 0;
  }
}

std::string ToAnsi(const wchar_t* text) {
  if (!text) return std::string();
  int length = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (length <= 1) return std::string();
  std::string out(length - 1, '\0');
  WideCharToMultiByte(CP_ACP, 0, text, -1, &out[0], length, nullptr, nullptr);
  return out;
}

class SubstituteLog final : public KyLog::IKyLog {
 public:
  SubstituteLog() { InitializeCriticalSection(&m_lock); }

  void Reserved0() override {}
  void Reserved1() override {}
  void Reserved2() override {}
  void Reserved4() override {}
  void Reserved5() override {}
  void Reserved6() override {}

  int32_t Init(const wchar_t*, const wchar_t* directory) override {
    FaultIfAsked("init");
    EnterCriticalSection(&m_lock);
    m_directory = ToAnsi(directory);
    LeaveCriticalSection(&m_lock);
    return 1;
  }

  int32_t IsLevelEnabled(uint32_t level) override {
    FaultIfAsked("enabled");
    return level != KyLog::kDisable && level <= Threshold();
  }

  int32_t Write(const KyLog::LogRecord* record) override {
    FaultIfAsked("write");
    std::string line = Prefix(*record) + Message(*record) + "\r\n";
    EnterCriticalSection(&m_lock);
    std::string path = LogPath();
    HANDLE file = CreateFileA(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
      DWORD written = 0;
      WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
      CloseHandle(file);
    }
    LeaveCriticalSection(&m_lock);
    return 1;
  }

 private:
  std::string LogPath() const {
    std::string path = EnvironmentValue("KYLOGEX_FILE");
    return path.empty() ? m_directory + "\\KyLogEx.log" : path;
  }

  uint32_t Threshold() const {
    std::string level = EnvironmentValue("KYLOGEX_LEVEL");
    if (level.size() == 1 && level[0] >= '0' && level[0] <= '6') return level[0] - '0';
    std::string ini = m_directory + "\\KyLogEx.ini";
    return GetPrivateProfileIntA("Log", "Level", kDefaultLevel, ini.c_str());
  }

  static std::string Prefix(const KyLog::LogRecord& record) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char head[96];
    snprintf(head, sizeof(head), "%04u-%02u-%02u %02u:%02u:%02u.%03u %s [", now.wYear, now.wMonth,
             now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
             KyLog::LevelName(record.level));
    char tail[48];
    snprintf(tail, sizeof(tail), ":%u) err=%u: ", record.line, record.error);
    return std::string(head) + ToAnsi(record.module) + "] " + ToAnsi(record.function) + " (" +
           ToAnsi(record.file) + tail;
  }

  static std::string Message(const KyLog::LogRecord& record) {
    // The Microsoft runtime's _vsnprintf family, as the suite's module uses.
    va_list args = static_cast<va_list>(record.arguments);
    if (record.narrowFormat) {
      char text[8192];
      int length = _vsnprintf(text, sizeof(text) - 1, record.narrowFormat, args);
      text[sizeof(text) - 1] = '\0';
      return length < 0 ? std::string(text) : std::string(text, length);
    }
    if (record.wideFormat) {
      wchar_t text[8192];
      _vsnwprintf(text, sizeof(text) / sizeof(text[0]) - 1, record.wideFormat, args);
      text[sizeof(text) / sizeof(text[0]) - 1] = L'\0';
      return ToAnsi(text);
    }
    return std::string();
  }

  CRITICAL_SECTION m_lock;
  std::string m_directory;
};

}  // namespace

extern "C" KyLog::IKyLog* __cdecl GetKyLogEx() {
  static SubstituteLog log;
  return &log;
}
