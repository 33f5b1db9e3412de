#include "mail/MailMemory.h"

#include "sqlite/Database.h"

namespace tarn::vkservice::mail {

using vkcore::Statement;

bool MailMemory::ensureSchema()
{
    return mDatabase.execute(
        "CREATE TABLE IF NOT EXISTS mail_memory (name TEXT PRIMARY KEY, value TEXT NOT NULL)");
}

QString MailMemory::text(const QString& pName)
{
    Statement tQuery(mDatabase, "SELECT value FROM mail_memory WHERE name = ?1");
    if (tQuery.bind(1, pName).step()) {
        return tQuery.text(0);
    }
    mReadFailed = mReadFailed || !tQuery.isOk();
    return {};
}

bool MailMemory::setText(const QString& pName, const QString& pValue)
{
    if (pValue.isNull()) {
        return Statement(mDatabase, "DELETE FROM mail_memory WHERE name = ?1").bind(1, pName).run();
    }
    return Statement(mDatabase, "INSERT OR REPLACE INTO mail_memory (name, value) VALUES (?1, ?2)")
        .bind(1, pName)
        .bind(2, pValue)
        .run();
}

QDateTime MailMemory::time(const QString& pName)
{
    const QString tText = text(pName);
    return tText.isNull() ? QDateTime() : QDateTime::fromSecsSinceEpoch(tText.toLongLong(), Qt::UTC);
}

bool MailMemory::setTime(const QString& pName, const QDateTime& pValue)
{
    return setText(pName, pValue.isValid() ? QString::number(pValue.toSecsSinceEpoch()) : QString());
}

} // namespace tarn::vkservice::mail
