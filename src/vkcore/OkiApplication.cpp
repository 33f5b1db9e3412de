#include <vkcore/OkiApplication.h>

#include <QtCore/QCoreApplication>

namespace tarn::vkcore {

OkiApplication::OkiApplication(const QList<QString>& pPrefixes, int pLogLevels) : Application(pPrefixes)
{
    setKeptLogFiles(pLogLevels);
}

OkiApplication::~OkiApplication() = default;

bool OkiApplication::init()
{
    initApplicationDirs();
    const bool tConfigLoaded = loadApplicationConfig();
    initUserDirs();
    initLogFile();
    const bool tUserConfigLoaded = loadUserConfig();
    chooseLanguage();
    return tConfigLoaded && tUserConfigLoaded;
}

void OkiApplication::requestQuit(int pStatus)
{
    QCoreApplication::exit(pStatus);
}

} // namespace tarn::vkcore
