#pragma once

#include <QtCore/QProcessEnvironment>
#include <QtCore/QString>

namespace tarn::vkservice::update {

// The machine's proxy settings for https.
struct OsProxy
{
    QString mProxy;   // an address, with user and password if required; empty: none
    QString mNoProxy; // hosts to reach without it, as in the variable no_proxy
};

// From the variables https_proxy, all_proxy and no_proxy, in lower or upper case: those of the process, and
// if it has none, those in the file that sets them for all logins ("/etc/environment"). A service that the
// system starts does not get the variables of a login.
OsProxy osProxy(const QProcessEnvironment& pEnvironment, const QString& pEnvironmentFile);

} // namespace tarn::vkservice::update
