#include <vkcore/NetProxy.h>

namespace tarn::vkcore {

NetProxyMode netProxyModeFromStr(const QString& pWord, bool* pOk)
{
    const bool tManual = pWord == QLatin1String("manual");
    if (pOk != nullptr) {
        *pOk = tManual || pWord == QLatin1String("os");
    }
    return tManual ? NetProxyModeManual : NetProxyModeOs;
}

NetProxy::NetProxy(bool pEnabled, bool pConfigured) : mEnabled(pEnabled), mConfigured(pConfigured) {}
NetProxy::~NetProxy() = default;
NetProxy::NetProxy(const NetProxy&) = default;
NetProxy& NetProxy::operator=(const NetProxy&) = default;

} // namespace tarn::vkcore
