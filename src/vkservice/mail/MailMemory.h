#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <utility>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::mail {

// Records what was already reported by mail, so that it is not reported twice. Stored with the queue, and
// changed in the same transaction that queues the mail.
class MailMemory
{
public:
    explicit MailMemory(vkcore::Database& pDatabase) : mDatabase(pDatabase) {}

    bool ensureSchema();

    // A null text if nothing is stored, or if it cannot be read. Writing a null text removes the entry.
    QString text(const QString& pName);
    bool setText(const QString& pName, const QString& pValue);
    QDateTime time(const QString& pName);
    bool setTime(const QString& pName, const QDateTime& pValue);
    // True if a read has failed since the last call: then the results of the reads must not be used.
    bool takeReadFailure() { return std::exchange(mReadFailed, false); }

private:
    vkcore::Database& mDatabase;
    bool mReadFailed = false;
};

} // namespace tarn::vkservice::mail
