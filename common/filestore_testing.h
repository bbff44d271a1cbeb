// Test executables only: a gate that every change the store makes to the disk
// passes first (making or writing a working copy, writing or removing a
// commit list, replacing or deleting a file, creating a folder). A test
// ends an update the way a crash would by letting a number of changes
// through, tearing the next one and losing every later one. Nothing in the
// shipped library installs a gate.
#pragma once

#include <string>

namespace KyGuidUtils {

class IFileChangeGate {
 public:
  enum class Fate {
    kWhole,  // the change happens
    kTorn,   // a write leaves half its bytes; anything else happens or not, as it is atomic
    kLost,   // the change never reaches the disk
  };
  virtual ~IFileChangeGate() = default;
  virtual Fate Next(const std::wstring& path) = 0;
};

class ScopedFileChangeGate {
 public:
  explicit ScopedFileChangeGate(IFileChangeGate& gate);
  ~ScopedFileChangeGate();
  ScopedFileChangeGate(const ScopedFileChangeGate&) = delete;
  ScopedFileChangeGate& operator=(const ScopedFileChangeGate&) = delete;

 private:
  IFileChangeGate* m_previous;
};

}  // namespace KyGuidUtils
