#include "internal/InstallLogModule.h"

#include <vkcore/Application.h>
#include <vkcore/InstallModule.h>

#include "sqlite/InstallLogStore.h"

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

class InstallLogReader : public Installer
{
public:
    explicit InstallLogReader(Application* pApp) : mApp(pApp) {}

    bool open(const QString& pPath, QString* pReason)
    {
        const bool tOk = mStore.openForReading(pPath);
        if (!tOk) {
            *pReason = mStore.errorText();
        }
        return tOk;
    }

    bool getInstallLog(QList<GRef2<InstLogEntry>>* pEntries, const QDateTime& pFrom, const QDateTime& pTo,
                       int pMaxCount, bool pTopLevelOnly) override
    {
        if (mStore.read(pEntries, pFrom, pTo, pMaxCount, pTopLevelOnly)) {
            return true;
        }
        mApp->log(u"Failed to read the install log: %1"_s.arg(mStore.errorText()));
        return false;
    }

private:
    Application* mApp;
    InstallLogStore mStore;
};

} // namespace

} // namespace tarn::vkcore

extern "C" Q_DECL_EXPORT tarn::vkcore::Installer* vkcoreOpenInstallLog(tarn::vkcore::Application* pApp,
                                                                       const QString& pPath, QString* pReason)
{
    auto tReader = std::make_unique<tarn::vkcore::InstallLogReader>(pApp);
    return tReader->open(pPath, pReason) ? tReader.release() : nullptr;
}
