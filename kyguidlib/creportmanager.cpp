#include "kyguidlib/creportmanager.h"

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <utility>

#include "common/faultguard.h"
#include "common/kylog.h"
#include "common/lazysingleton.h"
#include "common/logfacade.h"
#include "common/modules.h"
#include "common/win32raii.h"
#include "kyguidlib/cguiddllreader.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/singletonex.h"

namespace KyReportMgr {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\creportmanager";

// Set by the process-wide manager's exit routine. Constant-initialised and
// trivially destructible, so touching it never involves the runtime.
std::atomic<bool> g_exiting{false};

// Whatever the module does, the host must not go down with it.
bool ContainEveryFault(const EXCEPTION_RECORD*, void*) { return true; }

}  // namespace

CReportManager* CReportManager::Instance() {
  return KyGuidUtils::LazySingleton<CReportManager>::Get(SearchSuiteFolders{});
}

CReportManager::CReportManager(const wchar_t* dir) {
  if (Load(dir)) Init();
}

CReportManager::CReportManager(SearchSuiteFolders) {
  if (KyGuidUtils::LoadFromSuiteFolders([this](const wchar_t* dir) { return Load(dir); })) Init();
  // Last, after what Init registered for the installed copy: exit routines
  // run in reverse, so sending stops before that copy is freed.
  atexit(&CReportManager::BeginProcessExit);
}

bool CReportManager::IsShutdown() const { return m_faulted != 0 || g_exiting.load(); }

bool CReportManager::IsReady() const { return m_ready != 0 && m_faulted == 0; }

bool CReportManager::Load(const wchar_t* dir) {
  KyGuidUtils::UniqueModule module(KyGuidUtils::LoadModuleFromFolder(dir, kModuleName));
  if (!module) return false;
  auto init = KyGuidUtils::GetProcAs<KyReportInitFn>(module.get(), "KyReportInit");
  auto send = KyGuidUtils::GetProcAs<KyReportSendFn>(module.get(), "KyReportSend");
  if (!init || !send) {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(module.get(), path, MAX_PATH);
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(L"KyReportMgr::CReportManager::Load"),
                 L"%s lacks KyReportInit or KyReportSend, reporting is off", path);
    return false;
  }
  m_module = std::move(module);
  m_init = init;
  m_send = send;
  return true;
}

void CReportManager::Init() {
  constexpr wchar_t kFunction[] = L"KyReportMgr::CReportManager::Init";
  strncpy_s(m_processName, KyGuid::GetProcessName().c_str(), _TRUNCATE);

  struct Call {
    KyReportInitFn init;
    int32_t result;
    static void Run(void* context) {
      Call* c = static_cast<Call*>(context);
      c->result = c->init(kReportInterfaceVersion, &CReportManager::Trace);
    }
  } call{m_init, 0};
  if (!RunGuarded(&Call::Run, &call)) return;
  if (call.result == 0) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFunction),
                 "reporting module refused interface version %u, reporting is off",
                 static_cast<unsigned>(kReportInterfaceVersion));
    return;
  }
  // Every report asks the installed copy for its GUID. Its first use loads
  // modules and registers exit work, which must happen on this thread: done
  // first on an update thread while the host is exiting, it would wait on
  // the runtime's exit lock forever.
  KyGuidUtils::CSingletonEx<KyGuid::CGuidDllReader>::Instance();
  InterlockedExchange(&m_ready, 1);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction), "reporting module ready");
}

bool CReportManager::Send(const char* business, const ReportFields& fields) {
  if (!business || !IsReady() || IsShutdown()) return false;

  char installedGuid[33] = {};
  KyGuid::GetInstalledGuid(installedGuid);
  std::vector<const char*> keys;
  std::vector<const char*> values;
  keys.reserve(fields.size() + 2);
  values.reserve(fields.size() + 2);
  for (const auto& field : fields) {
    keys.push_back(field.first.c_str());
    values.push_back(field.second.c_str());
  }
  keys.push_back(kInstalledGuidField);
  values.push_back(installedGuid);
  keys.push_back(kProcessNameField);
  values.push_back(m_processName);

  struct Call {
    KyReportSendFn send;
    const char* business;
    const char* const* keys;
    const char* const* values;
    uint32_t count;
    int32_t result;
    static void Run(void* context) {
      Call* c = static_cast<Call*>(context);
      c->result = c->send(c->business, c->keys, c->values, c->count);
    }
  } call{m_send, business, keys.data(), values.data(), static_cast<uint32_t>(keys.size()), 0};
  return RunGuarded(&Call::Run, &call) && call.result != 0;
}

bool CReportManager::RunGuarded(void (*call)(void*), void* context) {
  const KyGuidUtils::ModuleCall outcome =
      KyGuidUtils::CallSuiteModule(m_faulted, call, context, &ContainEveryFault, nullptr);
  if (outcome == KyGuidUtils::ModuleCall::kFaulted) {
    KyLog::Write(KyLog::kError, KYLOG_SITE(L"KyReportMgr::CReportManager::RunGuarded"),
                 "reporting module faulted, reporting is off");
  }
  return outcome == KyGuidUtils::ModuleCall::kReturned;
}

void CReportManager::BeginProcessExit() { g_exiting.store(true); }

void __cdecl CReportManager::Trace(const char* format, ...) {
  KyGuidUtils::PreserveLastError keepCallersError;
  KyLog::LogFacade* facade = KyLog::GetLogFacade();
  if (!format || !facade->IsEnabled(KyLog::kTrace)) return;
  va_list args;
  va_start(args, format);
  facade->TraceVA(0, 0, kLogSourcePath, __LINE__, L"KyReportMgr::CReportManager::Trace", format,
                  args);
  va_end(args);
}

}  // namespace KyReportMgr
