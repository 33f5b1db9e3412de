#include "mirror/RootChain.h"

#include "publication/Layout.h"

#include "os/FileTools.h"
#include "tuf/TrustedSet.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

Result<QList<MetadataFile>> readRootChain(os::FileSystem& pFileSystem, const QString& pMetadata,
                                          tuf::Fetcher& pFrom, const QByteArray& pFirst,
                                          const QByteArray& pLast)
{
    const qint64 tMost = tuf::Limits().mRootLength;
    tuf::TrustedSet tTrusted{QDateTime()};
    tuf::Root tLast;
    if (Failure tFailure = tuf::parseRoot(pLast, &tLast)) {
        return tFailure;
    }
    if (Failure tFailure = tTrusted.setRoot(pFirst)) {
        return tFailure;
    }
    QList<MetadataFile> tChain{{versionedName(tuf::sRoot, tTrusted.root()->mVersion), pFirst}};
    while (tTrusted.root()->mVersion < tLast.mVersion) {
        const qint64 tVersion = tTrusted.root()->mVersion + 1;
        const QString tName = versionedName(tuf::sRoot, tVersion);
        bool tKeysRemoved = false;
        QByteArray tFile =
            tVersion == tLast.mVersion
                ? pLast
                : os::readFile(pFileSystem, pMetadata + u'/' + tName, tMost).valueOr(QByteArray());
        if (tTrusted.addRoot(tFile, &tKeysRemoved)) {
            Failure tFailure = pFrom.fetch(tName, tMost, &tFile);
            tFailure = tFailure ? tFailure : tTrusted.addRoot(tFile, &tKeysRemoved);
            if (tFailure) {
                return tFailure;
            }
        }
        tChain.append({tName, tFile});
    }
    return tChain;
}

} // namespace tarn::vkpublish
