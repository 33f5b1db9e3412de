#include <vkcore/InstallModule.h>

#include <vkcore/Application.h>

#include "internal/InstallLogModule.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <dlfcn.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

constexpr int sServiceModule = 14;

// The reader is in a folder next to this library.
QByteArray readerPath()
{
    static const char sHere = 0;
    Dl_info tInfo{};
    if (::dladdr(&sHere, &tInfo) == 0 || tInfo.dli_fname == nullptr) {
        return {};
    }
    const QByteArray tLibrary(tInfo.dli_fname);
    return tLibrary.left(tLibrary.lastIndexOf('/') + 1) + "vkcore/libinstalllog.so";
}

// The reader is never unloaded, because its entries may outlive the module.
OpenInstallLog* loadReader(QString* pReason)
{
    void* tLibrary = ::dlopen(readerPath().constData(), RTLD_NOW | RTLD_LOCAL);
    void* tSymbol = tLibrary == nullptr ? nullptr : ::dlsym(tLibrary, sOpenInstallLogName);
    if (tSymbol == nullptr) {
        *pReason = QString::fromLocal8Bit(::dlerror());
    }
    return reinterpret_cast<OpenInstallLog*>(tSymbol);
}

// A user's service is either the user's own or that of the machine, whose log all users may read.
QString logPath(const Application& pApp)
{
    const QString tOwn = pApp.getStateDir() + u'/' + sInstallLogName;
    const QString tMachine = u"/var/lib/vkservice/"_s + sInstallLogName;
    return !QFileInfo::exists(tOwn) && QFileInfo::exists(tMachine) ? tMachine : tOwn;
}

} // namespace

Installer::~Installer() = default;

InstallModule::InstallModule(Application* pApp, int pModule) : mApp(pApp), mModule(pModule) {}

InstallModule::~InstallModule() = default;

bool InstallModule::init()
{
    QString tReason;
    const QString tPath = logPath(*mApp);
    if (mModule != sServiceModule) {
        tReason = u"there is no module %1"_s.arg(mModule);
    } else if (OpenInstallLog* tOpen = loadReader(&tReason)) {
        mInstaller.reset(tOpen(mApp, tPath, &tReason));
    }
    if (!mInstaller) {
        mApp->log(u"Failed to open the install log \"%1\": %2"_s.arg(tPath, tReason));
    }
    return mInstaller != nullptr;
}

Installer* InstallModule::getActiveInstaller() const
{
    return mInstaller.get();
}

} // namespace tarn::vkcore
