#pragma once

#include <vkcore/Export.h>

#include <QtCore/QString>

namespace tarn::vkcore {

enum NetProxyMode : int
{
    NetProxyModeNone = 0,   // the stored NetProxy counts, as with NetProxyModeManual
    NetProxyModeOs = 1,     // the settings of the operating system
    NetProxyModeManual = 2, // the stored NetProxy counts
};

// "os" and "manual", exactly so. Any other word sets *pOk to false and gives NetProxyModeOs.
VKCORE_EXPORT NetProxyMode netProxyModeFromStr(const QString& pWord, bool* pOk);

// A proxy for the service's downloads. It counts as set up only if mEnabled and mConfigured are both true.
struct VKCORE_EXPORT NetProxy
{
    NetProxy(bool pEnabled, bool pConfigured);
    ~NetProxy();
    NetProxy(const NetProxy&);
    NetProxy& operator=(const NetProxy&);

    bool mEnabled;
    bool mConfigured;
    QString mHost;
    quint32 mPort = 0;
    QString mUser;
    QString mPassword;
    bool mPasswordChanged =
        false; // the service takes mPassword only where this is true, and keeps the stored one else
};

} // namespace tarn::vkcore
