#pragma once

#include "KeyFolder.h"

#include <QtCore/QDateTime>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

struct PublicationTimes
{
    QDateTime mNow;
    QDateTime mExpires; // of timestamp and snapshot
    QDateTime mTargetsExpires;
};

// Brings a repository folder to what the record says. The file timestamp.json is replaced last, and by one
// rename: until then clients see the old state, from then on the new one, whole. A publication that was cut
// off at any moment is made good by the next one.
class Publication
{
public:
    // The key folder must be open.
    Publication(vkservice::os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder& pKeys);

    // Signs the timestamp anew, and the other files where their content changed or less than half of their
    // life is left.
    bool run(const PublicationTimes& pTimes, QString* pError);

    // Removes what the published metadata doesn't refer to. Clients in the middle of a download lose their
    // file.
    bool prune(QString* pError);

private:
    bool checkTarget(const QString& pName, QString* pError) const;
    bool checkTargets(QString* pError) const;
    bool readKeys(QString* pError);
    bool isFresh(const QString& pRole, const PublishedFile& pFile, const QDateTime& pExpires,
                 const PublicationTimes& pTimes) const;
    bool write(const QString& pPath, const QByteArray& pFile, QString* pError);
    bool writeVersioned(const QString& pRole, const QByteArray& pFile, const QDateTime& pExpires,
                        PublishedFile* pTo, QString* pError);
    bool writeRoot(QString* pError);

    vkservice::os::FileSystem& mFileSystem;
    QString mRepository;
    KeyFolder& mKeys;
    QMap<QString, tuf::SigningKey> mSigners; // role -> key
};

} // namespace tarn::vkpublish
