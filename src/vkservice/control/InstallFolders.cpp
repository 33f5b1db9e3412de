#include "control/InstallFolders.h"

#include "control/StoreCare.h"
#include "store/ConfigVariables.h"
#include "store/Settings.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

Result<packages::PackageFolders> installFolders(const store::Settings& pSettings,
                                                const store::ConfigVariables& pVariables, StoreCare& pStore)
{
    const auto tDataDir = pSettings.dataDirectory();
    bool tIsRead = true;
    const QString tInstallDir = pVariables.text(u"install.dir"_s, &tIsRead);
    if (!tDataDir || !tIsRead) {
        return pStore.failure(u"The folders of the packages"_s);
    }
    return packages::PackageFolders(tInstallDir, *tDataDir);
}

} // namespace tarn::vkservice::control
