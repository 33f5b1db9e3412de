#pragma once

#include <vkcore/Application.h>
#include <vkcore/Export.h>

namespace tarn::vkcore {

// The start-up of the family's programs on top of Application.
class VKCORE_EXPORT OkiApplication : public Application
{
    Q_OBJECT

public:
    // pLogLevels: how many old log files are kept when the log rotates, 0 or more.
    OkiApplication(const QList<QString>& pPrefixes, int pLogLevels);
    ~OkiApplication() override;

    // Calls initApplicationDirs, loadApplicationConfig, initUserDirs, initLogFile and loadUserConfig in this
    // order, all of them even if some fail. False if one of them failed.
    bool init() override;
    // Ends the event loop with the status.
    void requestQuit(int pStatus) override;
};

} // namespace tarn::vkcore
