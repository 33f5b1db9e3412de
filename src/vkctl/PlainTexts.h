#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QLocale>
#include <QtCore/QString>

namespace tarn::vkctl {

inline QString dateText(const QDateTime& pDate)
{
    return QLocale::c().toString(pDate, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

inline QString bytesText(qint64 pBytes)
{
    return QLocale::c().formattedDataSize(pBytes, 1, QLocale::DataSizeSIFormat);
}

} // namespace tarn::vkctl
