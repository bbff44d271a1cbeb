#include "kyguidlib/cguidupdater.h"

#include <cstring>
#include <memory>
#include <utility>

#include "common/filestore.h"
#include "common/kylog.h"
#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/cguidreporter.h"
#include "kyguidlib/creportmanager.h"
#include "kyguidlib/datafolder.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/platform.h"
#include "kyguidlib/td/seqidgenerator.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cguidupdater";
constexpr int kRightRetries = 10;
constexpr DWORD kRightRetryDelayMs = 10;

uint32_t Ticks() { return CurrentPlatform().ticks->GetTickCount(); }

// The legacy refresh after a saving build: the one entry into the legacy
// scheme. Returns its machine id, empty when the build failed. The refresh
// and the write-back of the GUID in force commit as one step: GlobalMgr.db,
// which keeps the identity while Guid.db is lost, never holds the freshly
// computed sequence id in place of the GUID.
std::string RefreshLegacyId(int result, const CGuidBuilder& builder) {
  if (result < 0) return std::string();
  KyGuidUtils::StoreStep step(GetCommitListPath());
  const std::string id = KyMacID::GetSequenceID(builder.NewInfo().Guid);
  step.Commit();
  return id;
}

// What a crash left of an earlier update is finished or discarded before
// this one reads anything. When it cannot be finished, this update writes
// nothing: its writes could be overtaken by the older commit later.
void RecoverStore() {
  if (!KyGuidUtils::RecoverStore(GetCommitListPath(), GetStoreFiles())) {
    KyGuidUtils::RefuseStoreWrites(ERROR_SHARING_VIOLATION);
  }
}

}  // namespace

// The updater that UpdateNow runs on the caller's stack: its own stop event,
// no thread, no update right, never handed to a client.
class CGuidUpdater::Temporary final : public CGuidUpdater {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

// Gives the update right back however the update ends, an exception
// included: a right left with the process-wide updater would keep every
// process of the machine from updating until this one exits.
class CGuidUpdater::RightHolder {
 public:
  explicit RightHolder(CGuidUpdater& updater) : m_updater(updater) {}
  ~RightHolder() { m_updater.UnlockUpdateRight(); }
  RightHolder(const RightHolder&) = delete;
  RightHolder& operator=(const RightHolder&) = delete;

 private:
  CGuidUpdater& m_updater;
};

CGuidUpdater::~CGuidUpdater() { UnlockUpdateRight(); }

void CGuidUpdater::OnProcessExit() { StopAndJoin(); }

BOOL CGuidUpdater::StartUpdate() {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(L"KyGuid::CGuidUpdater::StartUpdate"),
               "Try start update guid");
  if (!CheckUpdateFreq()) return FALSE;
  // The update thread reports through the report manager, whose first use
  // loads modules and registers exit work. Done first on that thread while
  // the host is exiting, it would wait on the runtime's exit lock forever.
  KyReportMgr::CReportManager::Instance();
  return Start();
}

BOOL CGuidUpdater::StopUpdate() { return StopAndJoin(); }

uint32_t CGuidUpdater::UpdateNow() {
  try {
    Temporary updater;
    return static_cast<uint32_t>(updater.SafeUpdateNow());
  } catch (...) {
    return 0xFFFFFFFFu;
  }
}

BOOL CGuidUpdater::BuildGuidNow(char* buffer, uint32_t size) {
  try {
    std::unique_ptr<CGuidBuilder> builder = std::make_unique<CGuidBuilder>();
    builder->DecideNewGuid();
    const std::string& guid = builder->NewInfo().Guid;
    if (!buffer || guid.empty() || guid.size() >= size) return FALSE;
    return strcpy_s(buffer, size, guid.c_str()) == 0;
  } catch (...) {
    return FALSE;
  }
}

BOOL CGuidUpdater::CheckUpdateFreq() {
  constexpr wchar_t kFunction[] = L"KyGuid::CGuidUpdater::CheckUpdateFreq";
  // Unsigned subtraction: a tick count that wrapped around still measures
  // the time since the last update.
  if (m_lastUpdateTick != 0 && Ticks() - m_lastUpdateTick <= kMinUpdateInterval) {
    if (FileLastWriteTime(GetGuidFilePath()) != 0) {
      KyLog::Write(KyLog::kTrace, KYLOG_SITE(kFunction), "CheckUpdateFreq denied");
      return FALSE;
    }
    m_lastUpdateTick = Ticks();
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction),
                 "Guid file not exist, maybe deleted, recreate it");
    return TRUE;
  }
  m_lastUpdateTick = Ticks();
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kFunction), "CheckUpdateFreq allow");
  return TRUE;
}

int CGuidUpdater::LockUpdateRight(uint32_t* createError) {
  constexpr wchar_t kFunction[] = L"KyGuid::CGuidUpdater::LockUpdateRight";
  if (createError) *createError = 0;
  if (m_updateRight) return -1;
  // Whoever creates the event holds the right; it is never signalled or
  // waited on, and is free again once every holder has closed it.
  KyGuidUtils::UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, kUpdateRightName));
  if (!event) {
    const DWORD error = GetLastError();
    if (createError) *createError = error;
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction), "LockUpdateRight failed: %u",
                 static_cast<unsigned>(error));
    return -1;
  }
  if (GetLastError() == ERROR_ALREADY_EXISTS) {
    event.reset();
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction),
                 "can't lock update right, maybe other update thread is working");
    return 0;
  }
  m_updateRight = std::move(event);
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kFunction), "LockUpdateRight Success");
  return 1;
}

void CGuidUpdater::UnlockUpdateRight() {
  if (!m_updateRight) return;
  m_updateRight.reset();
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(L"KyGuid::CGuidUpdater::UnlockUpdateRight"),
               "UnlockUpdateRight");
}

unsigned CGuidUpdater::Run() { return UpdateProc(); }

unsigned CGuidUpdater::UpdateProc() {
  constexpr wchar_t kFunction[] = L"KyGuid::CGuidUpdater::UpdateProc";
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction), "guid update thread begin!");
  if (LockUpdateRight() != 1) return 0xFFFFFFFFu;
  {
    RightHolder right(*this);
    RunUpdate(UpdateCaller::kBackground, KYLOG_SITE(kFunction));

    // Keeping the right a little longer keeps every other process of the
    // machine from starting an update in the same minute.
    KyLog::Write(KyLog::kTrace, KYLOG_SITE(kFunction), "wait for %d seconds to reduce update freq!",
                 static_cast<int>(kHoldAfterUpdateMs / 1000));
    WaitForSingleObject(StopEvent(), kHoldAfterUpdateMs);
  }
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction), "guid update thread end!");
  return 0;
}

int CGuidUpdater::SafeUpdateNow() {
  constexpr wchar_t kFunction[] = L"KyGuid::CGuidUpdater::SafeUpdateNow";
  uint32_t createError = 0;
  const int locked = LockUpdateRight(&createError);
  if (locked == -1) {
    KyLog::WriteError(KyLog::kWarn, createError, KYLOG_SITE(kFunction),
                      "Lock update right failed, maybe need administrator rights!");
    return -1;
  }
  if (locked == 0) {
    for (int attempt = 0; attempt < kRightRetries; ++attempt) {
      if (LockUpdateRight() == 1) {
        UnlockUpdateRight();
        KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction), "Other process is do update ok!");
        return 2;
      }
      Sleep(kRightRetryDelayMs);
    }
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction),
                 "Other process is doing update, we can't wait it finish!");
    return 0;
  }

  RightHolder right(*this);
  RunUpdate(UpdateCaller::kSynchronous, KYLOG_SITE(kFunction));
  return 1;
}

int CGuidUpdater::RunUpdate(UpdateCaller caller, const KyLog::Site& resultSite) {
  // Every write of this update goes through the guard's checks; when they
  // fail, the update writes nothing.
  const CDataFolderGuard guard;
  if (guard.Trusted()) RecoverStore();
  std::unique_ptr<CGuidBuilder> builder = std::make_unique<CGuidBuilder>();
  const int result = builder->UpdateNewGuid();
  const std::string ancientGuid = RefreshLegacyId(result, *builder);
  CGuidReporter reporter;
  if (caller == UpdateCaller::kBackground) {
    LogUpdateResult(resultSite, result, *builder);
    reporter.ReportCache();  // what earlier runs on callers' threads left behind
    KyGuidUtils::StoreStep step(GetCommitListPath());  // the machine's random GUID, when new
    reporter.Report(result, *builder, ancientGuid);
    step.Commit();
    return result;
  }
  // Nothing is sent from the caller's thread: the next background run sends
  // the cached report while it is fresh. An unchanged GUID is not worth one.
  if (result != kResultKept) {
    KyGuidUtils::StoreStep step(GetCommitListPath());
    ReportFields report;
    reporter.MakeReport(result, *builder, ancientGuid, report);
    reporter.SaveToCache(report);
    step.Commit();
  }
  LogUpdateResult(resultSite, result, *builder);
  return result;
}

void CGuidUpdater::LogUpdateResult(const KyLog::Site& site, int result,
                                   const CGuidBuilder& builder) {
  const char* oldGuid = builder.ActiveInfo().Guid.c_str();
  const char* newGuid = builder.NewInfo().Guid.c_str();
  switch (result) {
    case kResultBuildFailed:
      KyLog::Write(KyLog::kInfo, site, "guid update error, use special guid: %s ==> %s", oldGuid,
                   newGuid);
      break;
    case kResultKept:
      KyLog::Write(KyLog::kInfo, site, "guid no change: %s", newGuid);
      break;
    case kResultFirstBuilt:
      KyLog::Write(KyLog::kInfo, site, "first create guid: %s", newGuid);
      break;
    case kResultAncientAdopted:
      KyLog::Write(KyLog::kInfo, site, "first init by ancient guid: %s", newGuid);
      break;
    case kResultReplacedSameVersion:
      KyLog::Write(KyLog::kInfo, site, "guid change: %s ==> %s", oldGuid, newGuid);
      break;
    case kResultReplacedOtherVersion:
      KyLog::Write(KyLog::kInfo, site, "version change[%d==>%d] guid change: %s ==> %s",
                   builder.ActiveInfo().Version, builder.NewInfo().Version, oldGuid, newGuid);
      break;
    default:
      KyLog::Write(KyLog::kInfo, site, "update result=%d, guid: %s ==> %s", result, oldGuid,
                   newGuid);
      break;
  }
}

}  // namespace KyGuid
