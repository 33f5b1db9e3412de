// vk.cfg: any bytes either load, or are refused with a reason and leave the configuration unchanged.
#include "support/ScratchFolder.h"

#include <vkcore/Config.h>

#include <cstdlib>

using namespace Qt::StringLiterals;

using namespace tarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    static const fuzz::ScratchFolder sFolder;
    const QString tName = u"vk.cfg"_s;
    sFolder.write(tName, QByteArray(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize)));

    const QString tKey = u"service.socketName"_s;
    vkcore::Config tConfig;
    tConfig.setValue(tKey, u"before"_s, vkcore::Config::DefaultValue);
    const bool tLoaded = tConfig.load(sFolder.path(tName), tName, vkcore::Config::SystemValue, true);
    const bool tSame = tConfig.getStrValue(tKey) == u"before"_s;
    if (tLoaded != tConfig.errorText().isEmpty() || (!tLoaded && !tSame)) {
        std::abort();
    }
    return 0;
}
