#pragma once

namespace tarn::vkctl {

class CtlApplication;

// The commands, one source file each; docs/man/vkctl.1 describes them. Each returns the exit status.
int status(CtlApplication& pApp);
int verify(CtlApplication& pApp);
int repair(CtlApplication& pApp);
int packages(CtlApplication& pApp);
int history(CtlApplication& pApp);
int hold(CtlApplication& pApp);
int unhold(CtlApplication& pApp);
int holds(CtlApplication& pApp);
int channel(CtlApplication& pApp);
int generations(CtlApplication& pApp);
int rollBack(CtlApplication& pApp);
int refused(CtlApplication& pApp);
int accept(CtlApplication& pApp);

} // namespace tarn::vkctl
