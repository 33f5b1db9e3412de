// rkm's command line: each line of an input is one argument. The commands run for real, against a service
// that answers as an idle one does.
#include "support/Arguments.h"
#include "support/ScratchFolder.h"

#include "ScriptedService.h"
#include "vkc_Application.h"

#include <QtCore/QCoreApplication>

#include <cstdlib>

using namespace tarn;

namespace {

const fuzz::ScratchFolder& folder()
{
    static const fuzz::ScratchFolder sFolder;
    return sFolder;
}

QString socketPath()
{
    return folder().path(QStringLiteral("socket"));
}

void run()
{
    const vkcore::GRef<vkc::VKCApplication> tApp(new vkc::VKCApplication({QStringLiteral("vk")}, 2));
    const struct
    {
        const char* mKey;
        QString mValue;
    } tValues[] = {
        {"application.logDir", folder().path(QStringLiteral("log"))},
        {"application.settingsDir.other", folder().path(QStringLiteral("settings"))},
        {"service.socketName", socketPath()},
        {"service.stateDir", folder().path(QStringLiteral("state"))},
    };
    for (const auto& tValue : tValues) {
        tApp->getConfig()->setValue(QLatin1String(tValue.mKey), tValue.mValue, vkcore::Config::UserValue);
    }
    tApp->init();
    tApp->run();
    tApp->finalize();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* pArgc, char*** pArgv)
{
    // No service and no settings of this machine are met.
    for (const char* tName : {"HOME", "TMPDIR", "XDG_CONFIG_HOME", "XDG_STATE_HOME"}) {
        qputenv(tName, folder().path().toUtf8());
    }
    new QCoreApplication(*pArgc, *pArgv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    static ScriptedService sService(socketPath());
    fuzz::setArguments("rkm\n" +
                       QByteArray(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize)));
    run();
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}
