// rkm's command line: each line of an input is one argument. The commands run against a service that answers
// like an idle one.
#include "support/ScratchFolder.h"

#include "ScriptedService.h"
#include "vkc_Application.h"

#include <vkcore/ProcessArgumentList.h>

#include <QtCore/QByteArrayList>
#include <QtCore/QCoreApplication>

#include <vector>

using namespace Qt::StringLiterals;

using namespace tarn;

namespace {

// Returned by ProcessArgumentList below instead of the arguments of the process.
std::vector<char*> sArguments;

const fuzz::ScratchFolder& folder()
{
    static const fuzz::ScratchFolder sFolder;
    return sFolder;
}

QString socketPath()
{
    return folder().path(u"socket"_s);
}

void run()
{
    const vkcore::GRef<vkc::VKCApplication> tApp(new vkc::VKCApplication({u"vk"_s}, 2));
    const struct
    {
        const char* mKey;
        QString mValue;
    } tValues[] = {
        {"application.logDir", folder().path(u"log"_s)},
        {"application.settingsDir.other", folder().path(u"settings"_s)},
        {"service.socketName", socketPath()},
        {"service.stateDir", folder().path(u"state"_s)},
    };
    for (const auto& tValue : tValues) {
        tApp->getConfig()->setValue(QLatin1String(tValue.mKey), tValue.mValue, vkcore::Config::UserValue);
    }
    tApp->init();
    tApp->run();
    tApp->finalize();
}

} // namespace

vkcore::ProcessArgumentList::ProcessArgumentList() = default;

int vkcore::ProcessArgumentList::argc() const
{
    return static_cast<int>(sArguments.size()) - 1;
}

char** vkcore::ProcessArgumentList::argv() const
{
    return sArguments.data();
}

extern "C" int LLVMFuzzerInitialize(int* pArgc, char*** pArgv)
{
    // Keeps away from services and settings of this machine.
    for (const char* tName : {"HOME", "TMPDIR", "XDG_CONFIG_HOME", "XDG_STATE_HOME"}) {
        qputenv(tName, folder().path().toUtf8());
    }
    new QCoreApplication(*pArgc, *pArgv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    static ScriptedService sService(socketPath());
    const QByteArray tInput =
        "rkm\n" + QByteArray(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    QByteArrayList tLines = (tInput.endsWith('\n') ? tInput.chopped(1) : tInput).split('\n');
    sArguments.clear();
    for (QByteArray& tLine : tLines) {
        sArguments.push_back(tLine.data());
    }
    sArguments.push_back(nullptr);
    run();
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}
