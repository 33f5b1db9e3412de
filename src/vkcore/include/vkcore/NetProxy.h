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

// Exactly "os" or "manual". Any other word sets *pOk to false and returns NetProxyModeOs.
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
        false; // the service uses mPassword only if this is true, and otherwise keeps the stored one
};

} // namespace tarn::vkcore
