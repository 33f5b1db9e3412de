#include "packages/StateRecord.h"

#include <QtCore/QFile>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr mode_t sPrivateFile = 0600;

} // namespace

Failure storeRecord(os::FileSystem& pFileSystem, const QString& pPath, const QByteArray& pBytes)
{
    return os::replaceFile(pFileSystem, pPath, pBytes, sPrivateFile);
}

Failure setAside(os::FileSystem& pFileSystem, const QString& pPath, const Failure& pDamage, QString* pWarning)
{
    const QString tAside = pPath + u".damaged"_s;
    if (pFileSystem.rename(QFile::encodeName(pPath), QFile::encodeName(tAside)) != 0) {
        return Failure::fromErrno(errno, u"move %1 away (%2)"_s.arg(pPath, pDamage.mText));
    }
    *pWarning = u"%1. It was renamed to %2"_s.arg(pDamage.mText, tAside);
    return {};
}

QJsonValue dateValue(const QDateTime& pDate)
{
    return pDate.isValid() ? QJsonValue(pDate.toUTC().toString(Qt::ISODate)) : QJsonValue();
}

QDateTime readDate(vkcore::JsonReader& pFrom, const char* pName)
{
    const QString tText = pFrom.textOrNull(pName);
    const QDateTime tDate = QDateTime::fromString(tText, Qt::ISODate);
    pFrom.require(tText.isNull() || tDate.isValid(), pName, u"is not a date"_s);
    return tDate;
}

} // namespace tarn::packages
