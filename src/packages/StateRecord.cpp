#include "packages/StateRecord.h"

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr mode_t sPrivateFile = 0600;

} // namespace

Failure storeRecord(os::FileSystem& pFileSystem, const QString& pPath, const QByteArray& pBytes)
{
    return os::replaceFile(pFileSystem, pPath, pBytes, sPrivateFile);
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
