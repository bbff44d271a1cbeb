// How the library's files change: never in place. A write goes into a working
// copy beside the file ("Guid.db.tmp"), and the copy replaces the file in one
// rename when the step that made it commits, so that a crash, a kill or a
// power cut at any instant leaves each file with its whole old content or its
// whole new content.
//
// A StoreStep is one logical change, such as a new record in Guid.db with its
// history section, or the legacy scheme's refresh of all its files. While a
// step is open on a thread, every read and write of that thread through this
// module and through the profile functions of profilefile.h goes to the
// step's working copies: the step sees its own writes and nobody else sees
// them before the commit. A write with no step open is a step of its own.
//
// A step that changes several files writes a commit list first and then
// replaces the files one by one. RecoverStore, run before an update writes
// anything, finishes a commit whose list is complete and removes every other
// working copy, so that no later update sees half a step.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace KyGuidUtils {

class StoreStep {
 public:
  // `commitList` is the file a commit of several files lists them in. A
  // step opened while another is open on the thread joins that one, which
  // commits for both.
  explicit StoreStep(std::wstring commitList);
  // Without a commit the working copies are removed and nothing changes.
  ~StoreStep();
  StoreStep(const StoreStep&) = delete;
  StoreStep& operator=(const StoreStep&) = delete;

  // Replaces every file the step changed; a file whose working copy came out
  // as its old bytes is left alone. False, with the failure logged, when a
  // file could not be replaced: every file keeps its old content, or, when
  // the failure came after the commit list was complete, RecoverStore
  // finishes the commit before the next update writes.
  bool Commit();

  struct State;

 private:
  std::unique_ptr<State> m_state;  // null for a step that joined another
};

// From now on every write of this thread fails with `error` and changes
// nothing, or, with 0, may succeed again: an update that cannot trust its
// store writes nothing at all.
void RefuseStoreWrites(uint32_t error);
// The error every write of this thread fails with now, or 0.
uint32_t StoreWriteRefusal();

// The name of a file's working copy.
std::wstring WorkingCopyPath(const std::wstring& target);

// Whole files of the store, as the step open on this thread sees them.
bool StoreFileExists(const std::wstring& path);
// False (with the last error set) when the file cannot be read.
bool ReadStoreFile(const std::wstring& path, std::string& content);
// Gives the file exactly `content`.
bool WriteStoreFile(const std::wstring& path, const std::string& content);
// Overwrites the file's first bytes and keeps a longer old tail, as a write
// from the start of a file that is not truncated does; creates it when
// missing.
bool WriteStoreFileHead(const std::wstring& path, const std::string& head);
// As CopyFileW: the content of `from`, as this step sees it, becomes that of
// `to`; with `failIfExists` an existing `to` fails with ERROR_FILE_EXISTS.
bool CopyStoreFile(const std::wstring& from, const std::wstring& to, bool failIfExists);
// Deletes the file when the step commits.
bool RemoveStoreFile(const std::wstring& path);

// For the profile functions: the file to read `path` from now, and a write
// done by `write` on the file to write `path` through. `write` keeps the
// last error of a failure; so does WriteStoreFileWith.
std::wstring StorePathForRead(const std::wstring& path);
bool WriteStoreFileWith(const std::wstring& path,
                        const std::function<bool(const std::wstring& working)>& write);

// Before an update writes: finishes a commit that a crash interrupted after
// its list was complete, then removes the list and every other working copy
// of `files`, the store's files. False when an interrupted commit could not
// be finished; the update must then write nothing.
bool RecoverStore(const std::wstring& commitList, const std::vector<std::wstring>& files);

}  // namespace KyGuidUtils
