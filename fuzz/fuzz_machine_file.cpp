// Machine files now come from customers' machines: the parser must take any
// bytes, and what capture writes of a parsed machine must parse back to the
// same machine.
#include <cstdlib>
#include <string>

#include "tools/simmachine/machinefile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  KyGuidSim::MachineFile machine;
  KyGuidSim::MachineFileError error;
  if (!KyGuidSim::ParseMachineFile(text, machine, error)) {
    if (error.line < 1 || error.message.empty()) abort();
    return 0;
  }
  const std::string written = KyGuidSim::WriteMachineFile(machine);
  KyGuidSim::MachineFile again;
  if (!KyGuidSim::ParseMachineFile(written, again, error)) abort();
  if (KyGuidSim::WriteMachineFile(again) != written) abort();
  return 0;
}
