#include "schedule/LoginWatch.h"

#include <systemd/sd-login.h>

#include <QtCore/QSocketNotifier>

#include <cstdlib>
#include <cstring>

namespace tarn::vkservice::schedule {

LoginWatch::LoginWatch(QObject* pParent) : QObject(pParent) {}

LoginWatch::~LoginWatch()
{
    mNotifier.reset();
    sd_login_monitor_unref(mMonitor);
}

bool LoginWatch::start()
{
    if (sd_login_monitor_new("session", &mMonitor) < 0) {
        return false;
    }
    mSessions = userSessions();
    mNotifier = std::make_unique<QSocketNotifier>(sd_login_monitor_get_fd(mMonitor), QSocketNotifier::Read);
    connect(mNotifier.get(), &QSocketNotifier::activated, this, &LoginWatch::look);
    return true;
}

// Only sessions of users; the login screen and background work have sessions, too.
QSet<QString> LoginWatch::userSessions()
{
    QSet<QString> tSessions;
    char** tIds = nullptr;
    if (sd_get_sessions(&tIds) < 0) {
        return tSessions;
    }
    for (char** tId = tIds; tId != nullptr && *tId != nullptr; ++tId) {
        char* tClass = nullptr;
        if (sd_session_get_class(*tId, &tClass) >= 0 && std::strcmp(tClass, "user") == 0) {
            tSessions.insert(QString::fromUtf8(*tId));
        }
        std::free(tClass);
        std::free(*tId);
    }
    std::free(tIds);
    return tSessions;
}

void LoginWatch::look()
{
    sd_login_monitor_flush(mMonitor);
    const QSet<QString> tNow = userSessions();
    const bool tNew = !(tNow - mSessions).isEmpty();
    mSessions = tNow;
    if (tNew) {
        Q_EMIT userLoggedIn();
    }
}

} // namespace tarn::vkservice::schedule
