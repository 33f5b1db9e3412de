#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <utility>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::mail {

// What has been told by mail already, so that it is not told twice. Lies beside the queue, and is changed in
// the same transaction as the mail is queued in.
class MailMemory
{
public:
    explicit MailMemory(vkcore::Database& pDatabase) : mDatabase(pDatabase) {}

    bool ensureSchema();

    // A null text where nothing is stored, or where it can't be read. Writing a null text forgets it.
    QString text(const QString& pName);
    bool setText(const QString& pName, const QString& pValue);
    QDateTime time(const QString& pName);
    bool setTime(const QString& pName, const QDateTime& pValue);
    // Whether something could not be read since the last call: then nothing may be concluded from what was.
    bool takeReadFailure() { return std::exchange(mReadFailed, false); }

private:
    vkcore::Database& mDatabase;
    bool mReadFailed = false;
};

} // namespace tarn::vkservice::mail
