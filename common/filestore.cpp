#include "common/filestore.h"

#include <windows.h>

#include <algorithm>
#include <deque>
#include <memory>

#include "common/ansipath.h"
#include "common/filestore_testing.h"
#include "common/kylog.h"
#include "common/threadslot.h"
#include "common/win32raii.h"

namespace KyGuidUtils {

struct StoreStep::State {
  struct File {
    std::wstring target;
    std::wstring working;
    bool originalExists = false;
    std::string original;  // the target's bytes when the step first wrote it
    DWORD attributes = 0;  // the target's, which the new file keeps
    DWORD refusal = 0;     // non-zero: the target cannot be written; this is why
    bool written = false;  // the working copy holds the file's content
    bool removed = false;  // deleted when the step commits
    bool pending = false;  // listed in a complete commit list, not yet in place
  };

  File* Find(const std::wstring& target);
  // The entry of `target`; with `copy` its working copy is made from the
  // target's bytes when the entry is new.
  File& Edit(const std::wstring& target, bool copy);
  void Discard();

  std::wstring commitList;
  std::deque<File> files;
};

namespace {

using File = StoreStep::State::File;
using Fate = IFileChangeGate::Fate;

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\common\\filestore";
constexpr wchar_t kWorkingSuffix[] = L".tmp";
// A reader of another process holds a file for a moment; one that holds it
// longer than this keeps the old file.
constexpr int kReplaceAttempts = 100;
constexpr DWORD kReplaceRetryMs = 10;
constexpr wchar_t kListReplace = L'+';
constexpr wchar_t kListRemove = L'-';
constexpr wchar_t kListEnd[] = L"end";
// What a file replaced keeps of its old self, as it would when written in
// place.
constexpr DWORD kKeptAttributes =
    FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

IFileChangeGate* g_gate = nullptr;

Fate NextChange(const std::wstring& path) { return g_gate ? g_gate->Next(path) : Fate::kWhole; }

// The step open on each thread, and the error every write of the thread
// fails with (0: none).
ThreadSlot<StoreStep::State*> g_currentStep;
ThreadSlot<DWORD> g_refusal;

StoreStep::State* CurrentStep() { return g_currentStep.Get(); }

bool Refused() {
  const DWORD error = g_refusal.Get();
  if (error) SetLastError(error);
  return error != 0;
}

bool Exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool IsMissing(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

bool ReadAll(HANDLE file, std::string& content) {
  content.clear();
  char buffer[16384];
  for (;;) {
    DWORD read = 0;
    if (!ReadFile(file, buffer, sizeof(buffer), &read, nullptr)) return false;
    if (read == 0) return true;
    content.append(buffer, read);
  }
}

bool ReadBytes(const std::wstring& path, std::string& content) {
  UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  return file && ReadAll(file.get(), content);
}

bool WriteBytes(const std::wstring& path, const std::string& content) {
  UniqueFile file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return false;
  DWORD written = 0;
  return WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written,
                   nullptr) &&
         written == content.size();
}

// What a crash in the middle of a write leaves: half the bytes.
void Tear(const std::wstring& path) {
  std::string content;
  if (ReadBytes(path, content)) WriteBytes(path, content.substr(0, content.size() / 2));
}

bool Flush(const std::wstring& path) {
  UniqueFile file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
  return file && FlushFileBuffers(file.get());
}

bool DeleteChecked(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return true;
  if (NextChange(path) != Fate::kWhole) return true;
  // A working copy may carry the read-only mark of the file it was to replace.
  if (attributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
  return DeleteFileW(path.c_str()) || IsMissing(GetLastError());
}

bool IsBusy(DWORD error) {
  return error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION;
}

// Waits, briefly, until no other process holds `target` open in a way that
// keeps it from being replaced or deleted.
bool WaitUntilFree(const std::wstring& target) {
  for (int attempt = 0;; ++attempt) {
    UniqueFile probe(CreateFileW(target.c_str(), DELETE,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (probe || IsMissing(GetLastError())) return true;
    if (!IsBusy(GetLastError()) || attempt + 1 == kReplaceAttempts) return false;
    Sleep(kReplaceRetryMs);
  }
}

// The one change that puts new content in place: a rename, which a crash
// cannot leave half done. The profile functions still make every byte of
// the library's files, as they always have; they only write the working
// copy now, and this puts it in place, so that no crash, kill or power cut
// leaves a file empty or half written as a write in place could.
bool ReplaceWith(const std::wstring& working, const std::wstring& target) {
  if (NextChange(target) != Fate::kWhole) return true;
  for (int attempt = 0;; ++attempt) {
    if (MoveFileExW(working.c_str(), target.c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      return true;
    }
    if (!IsBusy(GetLastError()) || attempt + 1 == kReplaceAttempts) return false;
    Sleep(kReplaceRetryMs);
  }
}

void LogFailure(const char* what, const std::wstring& path) {
  const DWORD error = GetLastError();
  KyLog::WriteError(KyLog::kError, error, KYLOG_SITE(L"KyGuidUtils::StoreStep::Commit"),
                    "%s failed: %u, %s", what, static_cast<unsigned>(error),
                    WideToAnsi(path).c_str());
}

std::wstring ListText(const std::vector<File*>& replaced, const std::vector<File*>& removed) {
  std::wstring text;
  for (const File* file : replaced) text += kListReplace + file->target + L"\n";
  for (const File* file : removed) text += kListRemove + file->target + L"\n";
  return text + kListEnd + L"\n";
}

bool WriteCommitList(const std::wstring& path, const std::wstring& text) {
  const std::string bytes(reinterpret_cast<const char*>(text.data()),
                          text.size() * sizeof(wchar_t));
  const Fate fate = NextChange(path);
  if (fate == Fate::kLost) return true;
  if (!WriteBytes(path, fate == Fate::kTorn ? bytes.substr(0, bytes.size() / 2) : bytes)) {
    return false;
  }
  return Flush(path);
}

// A list is finished only with its last line: a torn one commits nothing.
std::vector<std::wstring> ReadCommitList(const std::wstring& path) {
  std::string bytes;
  std::vector<std::wstring> lines;
  if (!ReadBytes(path, bytes)) return lines;
  const std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()),
                          bytes.size() / sizeof(wchar_t));
  for (size_t start = 0, end; (end = text.find(L'\n', start)) != std::wstring::npos;
       start = end + 1) {
    lines.push_back(text.substr(start, end - start));
  }
  if (lines.empty() || lines.back() != kListEnd) return std::vector<std::wstring>();
  lines.pop_back();
  return lines;
}

// The commit proper. Every working copy reaches the disk before any file is
// replaced, and no file is replaced while another process holds one of them,
// so that a failure before the list is complete changes nothing.
bool CommitFiles(const std::wstring& commitList, const std::vector<File*>& replaced,
                 const std::vector<File*>& removed) {
  for (const File* file : replaced) {
    if (!Flush(file->working)) {
      LogFailure("FlushFile", file->working);
      return false;
    }
  }
  for (const std::vector<File*>* files : {&replaced, &removed}) {
    for (const File* file : *files) {
      if (!WaitUntilFree(file->target)) {
        LogFailure("ReplaceFile", file->target);
        return false;
      }
    }
  }
  const bool listed = replaced.size() + removed.size() > 1 && !commitList.empty();
  if (listed && !WriteCommitList(commitList, ListText(replaced, removed))) {
    LogFailure("WriteCommitList", commitList);
    DeleteChecked(commitList);
    return false;
  }
  bool all = true;
  for (File* file : replaced) {
    if (file->attributes) SetFileAttributesW(file->working.c_str(), file->attributes);
    if (ReplaceWith(file->working, file->target)) continue;
    LogFailure("ReplaceFile", file->target);
    file->pending = listed;
    all = false;
  }
  for (const File* file : removed) {
    if (DeleteChecked(file->target)) continue;
    LogFailure("DeleteFile", file->target);
    all = false;
  }
  if (listed && all) DeleteChecked(commitList);
  return all;
}

bool SamePath(const std::wstring& a, const std::wstring& b) {
  return _wcsicmp(a.c_str(), b.c_str()) == 0;
}

// A write outside any step is a step of its own, committed at once.
class WriteScope {
 public:
  WriteScope() : m_step(CurrentStep() ? nullptr : new StoreStep(std::wstring())) {}
  bool Finish(bool ok) {
    const DWORD error = GetLastError();
    if (m_step && ok) ok = m_step->Commit();
    if (ok) SetLastError(error);
    return ok;
  }

 private:
  std::unique_ptr<StoreStep> m_step;
};

}  // namespace

std::wstring WorkingCopyPath(const std::wstring& target) { return target + kWorkingSuffix; }

File* StoreStep::State::Find(const std::wstring& target) {
  for (File& file : files) {
    if (SamePath(file.target, target)) return &file;
  }
  return nullptr;
}

File& StoreStep::State::Edit(const std::wstring& target, bool copy) {
  if (File* known = Find(target)) return *known;
  files.emplace_back();
  File& file = files.back();
  file.target = target;
  file.working = WorkingCopyPath(target);
  // A working copy a crash left behind holds nothing of this step.
  DeleteChecked(file.working);
  if (!copy) return file;
  // Opened for writing, as the profile functions open it: what they could
  // not write (a folder in the file's place, a file the caller may not
  // change) is refused with their error.
  UniqueFile original(CreateFileW(target.c_str(), GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  if (!original) {
    if (!IsMissing(GetLastError())) file.refusal = GetLastError();
    return file;
  }
  FILE_BASIC_INFO basic{};
  FILE_STANDARD_INFO standard{};
  if (!GetFileInformationByHandleEx(original.get(), FileBasicInfo, &basic, sizeof(basic)) ||
      !GetFileInformationByHandleEx(original.get(), FileStandardInfo, &standard,
                                    sizeof(standard))) {
    file.refusal = GetLastError();
    return file;
  }
  // A link, or one name of a file with others, would carry its target's bytes
  // into a file every user reads.
  if ((basic.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) || standard.NumberOfLinks > 1) {
    file.refusal = ERROR_ACCESS_DENIED;
    return file;
  }
  if (!ReadAll(original.get(), file.original)) {
    file.refusal = GetLastError();
    return file;
  }
  original.reset();
  file.attributes = basic.FileAttributes & kKeptAttributes;
  file.originalExists = true;
  const Fate fate = NextChange(file.working);
  if (fate == Fate::kLost) return file;
  if (!WriteBytes(file.working, file.original)) {
    file.refusal = GetLastError();
    return file;
  }
  if (fate == Fate::kTorn) Tear(file.working);
  file.written = true;
  return file;
}

void StoreStep::State::Discard() {
  for (const File& file : files) {
    if (!file.pending) DeleteChecked(file.working);
  }
  files.clear();
}

StoreStep::StoreStep(std::wstring commitList) {
  if (CurrentStep()) return;
  m_state = std::make_unique<State>();
  m_state->commitList = std::move(commitList);
  g_currentStep.Set(m_state.get());
}

StoreStep::~StoreStep() {
  if (!m_state) return;
  g_currentStep.Set(nullptr);
  PreserveLastError keep;
  m_state->Discard();
}

bool StoreStep::Commit() {
  if (!m_state) return true;
  g_currentStep.Set(nullptr);
  std::vector<File*> replaced;
  std::vector<File*> removed;
  for (File& file : m_state->files) {
    if (file.removed) {
      if (Exists(file.target)) removed.push_back(&file);
      continue;
    }
    if (!file.written) continue;
    std::string now;
    if (file.originalExists && ReadBytes(file.working, now) && now == file.original) continue;
    replaced.push_back(&file);
  }
  const bool done = CommitFiles(m_state->commitList, replaced, removed);
  m_state->Discard();
  return done;
}

std::wstring StorePathForRead(const std::wstring& path) {
  StoreStep::State* step = CurrentStep();
  const File* file = step ? step->Find(path) : nullptr;
  if (!file || !(file->written || file->removed)) return path;
  return file->working;
}

bool StoreFileExists(const std::wstring& path) { return Exists(StorePathForRead(path)); }

bool ReadStoreFile(const std::wstring& path, std::string& content) {
  return ReadBytes(StorePathForRead(path), content);
}

bool WriteStoreFileWith(const std::wstring& path,
                        const std::function<bool(const std::wstring& working)>& write) {
  if (Refused()) return false;
  WriteScope scope;
  StoreStep::State* step = CurrentStep();
  if (!step) return false;  // no thread slot left in the process
  File& file = step->Edit(path, true);
  if (file.refusal) {
    SetLastError(file.refusal);
    return false;
  }
  file.removed = false;
  const Fate fate = NextChange(file.working);
  if (fate == Fate::kLost) return scope.Finish(true);
  const bool ok = write(file.working);
  if (!ok) return scope.Finish(false);
  if (fate == Fate::kTorn) Tear(file.working);
  file.written = true;
  return scope.Finish(true);
}

bool WriteStoreFile(const std::wstring& path, const std::string& content) {
  return WriteStoreFileWith(
      path, [&](const std::wstring& working) { return WriteBytes(working, content); });
}

bool WriteStoreFileHead(const std::wstring& path, const std::string& head) {
  return WriteStoreFileWith(path, [&](const std::wstring& working) {
    std::string content;
    ReadBytes(working, content);
    content.replace(0, std::min(content.size(), head.size()), head);
    return WriteBytes(working, content);
  });
}

bool CopyStoreFile(const std::wstring& from, const std::wstring& to, bool failIfExists) {
  std::string content;
  if (!ReadStoreFile(from, content)) return false;
  if (failIfExists && StoreFileExists(to)) {
    SetLastError(ERROR_FILE_EXISTS);
    return false;
  }
  return WriteStoreFile(to, content);
}

bool RemoveStoreFile(const std::wstring& path) {
  if (Refused()) return false;
  WriteScope scope;
  StoreStep::State* step = CurrentStep();
  if (!step) return false;
  File& file = step->Edit(path, false);
  file.removed = true;
  file.written = false;
  DeleteChecked(file.working);
  return scope.Finish(true);
}

bool RecoverStore(const std::wstring& commitList, const std::vector<std::wstring>& files) {
  constexpr wchar_t kFunction[] = L"KyGuidUtils::RecoverStore";
  auto known = [&](const std::wstring& path) {
    for (const std::wstring& file : files) {
      if (SamePath(file, path)) return true;
    }
    return false;
  };
  bool finished = true;
  for (const std::wstring& line : ReadCommitList(commitList)) {
    if (line.size() < 2) continue;
    const std::wstring target = line.substr(1);
    if (!known(target)) continue;
    const std::wstring working = WorkingCopyPath(target);
    const bool remove = line[0] == kListRemove;
    if (remove ? !Exists(target) : !Exists(working)) continue;  // in place before the crash
    if (remove ? DeleteChecked(target) : ReplaceWith(working, target)) {
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction), "finish interrupted commit: %s",
                   WideToAnsi(target).c_str());
    } else {
      const DWORD error = GetLastError();
      KyLog::WriteError(KyLog::kError, error, KYLOG_SITE(kFunction), "RecoverFile failed: %u, %s",
                        static_cast<unsigned>(error), WideToAnsi(target).c_str());
      finished = false;
    }
  }
  if (!finished) return false;
  DeleteChecked(commitList);
  for (const std::wstring& file : files) DeleteChecked(WorkingCopyPath(file));
  return true;
}

void RefuseStoreWrites(uint32_t error) { g_refusal.Set(error); }

uint32_t StoreWriteRefusal() { return g_refusal.Get(); }

ScopedFileChangeGate::ScopedFileChangeGate(IFileChangeGate& gate) : m_previous(g_gate) {
  g_gate = &gate;
}

ScopedFileChangeGate::~ScopedFileChangeGate() { g_gate = m_previous; }

}  // namespace KyGuidUtils
