// The interface that the suite's log module (KyLogEx64.dll) returns from its
// export "GetKyLogEx". Only slots 3, 7 and 8 are called; the others hold
// their place in the table. No virtual destructor: it would take table slots.
#pragma once

#include <cstdint>

#include "common/logrecord.h"

namespace KyLog {

class IKyLog {
 public:
  virtual void Reserved0() = 0;
  virtual void Reserved1() = 0;
  virtual void Reserved2() = 0;
  // Slot 3: the suite-wide shared-object name and the module's directory.
  virtual int32_t Init(const wchar_t* sharedName, const wchar_t* directory) = 0;
  virtual void Reserved4() = 0;
  virtual void Reserved5() = 0;
  virtual void Reserved6() = 0;
  // Slot 7.
  virtual int32_t IsLevelEnabled(uint32_t level) = 0;
  // Slot 8.
  virtual int32_t Write(const LogRecord* record) = 0;

 protected:
  ~IKyLog() = default;
};

using GetKyLogExFn = IKyLog* (*)();

}  // namespace KyLog
