#include <vkcore/NetProxy.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

NetProxyMode netProxyModeFromStr(const QString& pWord, bool* pOk)
{
    const bool tManual = pWord == "manual"_L1;
    if (pOk != nullptr) {
        *pOk = tManual || pWord == "os"_L1;
    }
    return tManual ? NetProxyModeManual : NetProxyModeOs;
}

NetProxy::NetProxy(bool pEnabled, bool pConfigured) : mEnabled(pEnabled), mConfigured(pConfigured) {}
NetProxy::~NetProxy() = default;
NetProxy::NetProxy(const NetProxy&) = default;
NetProxy& NetProxy::operator=(const NetProxy&) = default;

} // namespace tarn::vkcore
