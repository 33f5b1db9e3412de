#include "tuf/Names.h"

#include "tuf/Metadata.h"

#include <QtCore/QStringList>
#include <QtCore/QUrl>

namespace tarn::tuf {

namespace {

// File names have 255 bytes; a version goes in front of this and ".json" behind it.
constexpr qsizetype sMaxEncodedRole = 200;

QString encodePart(const QString& pPart)
{
    if (pPart == QLatin1String(".") || pPart == QLatin1String("..")) {
        return QString(pPart).replace(QLatin1Char('.'), QLatin1String("%2E"));
    }
    return encodeName(pPart);
}

} // namespace

QString encodeName(const QString& pName)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(pName));
}

QString targetFetchPath(const QString& pPath, const HashList& pHashes, bool pHashPrefix)
{
    QStringList tParts = pPath.split(QLatin1Char('/'));
    if (pHashPrefix) {
        tParts.last().prepend(QString::fromLatin1(namingHash(pHashes).toHex()) + QLatin1Char('.'));
    }
    for (QString& tPart : tParts) {
        tPart = encodePart(tPart);
    }
    return tParts.join(QLatin1Char('/'));
}

bool isDelegatedRoleName(const QString& pName)
{
    return !pName.isEmpty() && pName != sRoot && pName != sTimestamp && pName != sSnapshot &&
           pName != sTargets && encodeName(pName).size() <= sMaxEncodedRole;
}

} // namespace tarn::tuf
