// --machine: puts the machine described in a machine file behind the
// library's hardware seam for the rest of the process, so that a command
// asks "what if this machine's hardware became that?". The folders stay the
// real ones: the question is always about this machine's own files.
#pragma once

#include <memory>
#include <string>

#include "kyguidlib/platform_override.h"
#include "tools/simmachine/simulatedmachine.h"

namespace KyGuidCli {

class WhatIfMachine {
 public:
  // Nothing happens for an empty path. False, after saying why on stderr,
  // when the file cannot be read or is not understood.
  bool Install(const std::string& path);
  // How the output names the hardware it describes.
  std::string Description() const;

 private:
  std::string m_path;
  KyGuidSim::SimulatedMachine m_machine;
  std::unique_ptr<KyGuid::ScopedPlatform> m_scope;
};

}  // namespace KyGuidCli
