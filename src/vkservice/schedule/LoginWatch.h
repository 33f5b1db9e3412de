#pragma once

#include <QtCore/QObject>
#include <QtCore/QSet>
#include <QtCore/QString>

#include <memory>

class QSocketNotifier;
struct sd_login_monitor;

namespace tarn::vkservice::schedule {

// Reports when a user starts a session on this machine.
class LoginWatch : public QObject
{
    Q_OBJECT

public:
    explicit LoginWatch(QObject* pParent = nullptr);
    ~LoginWatch() override;

    // False on a machine without a record of sessions.
    bool start();

Q_SIGNALS:
    void userLoggedIn();

private:
    void look();
    static QSet<QString> userSessions();

    sd_login_monitor* mMonitor = nullptr;
    std::unique_ptr<QSocketNotifier> mNotifier;
    QSet<QString> mSessions;
};

} // namespace tarn::vkservice::schedule
