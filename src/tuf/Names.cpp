#include "tuf/Names.h"

#include "tuf/Metadata.h"

#include <QtCore/QStringList>
#include <QtCore/QUrl>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

// File names have 255 bytes; a version precedes this and ".json" follows.
constexpr qsizetype sMaxEncodedRole = 200;

QString encodePart(const QString& pPart)
{
    if (pPart == "."_L1 || pPart == ".."_L1) {
        return QString(pPart).replace(u'.', "%2E"_L1);
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
    QStringList tParts = pPath.split(u'/');
    if (pHashPrefix) {
        tParts.last().prepend(QString::fromLatin1(namingHash(pHashes).toHex()) + u'.');
    }
    for (QString& tPart : tParts) {
        tPart = encodePart(tPart);
    }
    return tParts.join(u'/');
}

bool isDelegatedRoleName(const QString& pName)
{
    return !pName.isEmpty() && pName != sRoot && pName != sTimestamp && pName != sSnapshot &&
           pName != sTargets && encodeName(pName).size() <= sMaxEncodedRole;
}

} // namespace tarn::tuf
