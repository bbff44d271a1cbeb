#include "kyguidlib/cguidupdater.h"

namespace KyGuid {

// The update engine arrives with the builder; until then every operation
// reports that nothing was done.
BOOL CGuidUpdater::StartUpdate() { return FALSE; }
BOOL CGuidUpdater::StopUpdate() { return StopAndJoin(); }
uint32_t CGuidUpdater::UpdateNow() { return 0; }
BOOL CGuidUpdater::BuildGuidNow(char*, uint32_t) { return FALSE; }

void CGuidUpdater::OnProcessExit() { StopAndJoin(); }

unsigned CGuidUpdater::Run() { return 0; }

}  // namespace KyGuid
