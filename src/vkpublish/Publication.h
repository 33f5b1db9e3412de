#pragma once

#include "KeyFolder.h"

#include <QtCore/QDateTime>
#include <QtCore/QMap>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

struct PublicationTimes
{
    QDateTime mNow;
    QDateTime mExpires; // of timestamp and snapshot
    QDateTime mTargetsExpires;
};

// Brings a repository folder to what the record says. The file timestamp.json is replaced by one rename, when
// all that it leads to is there: until then clients see the old state, from then on the new one, whole.
// Behind it comes only a new root; keys that it replaces have signed all of the state as well, so clients
// accept that under either root. A publication that was cut off at any moment is made good by the next one.
class Publication
{
public:
    // The key folder must be open.
    Publication(os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder& pKeys);

    // Signs the timestamp anew, and the other files where their content changed or less than half of their
    // life is left. Where the repository is ahead of the record, by files that the record's keys have signed,
    // the record is from a backup and is raised first.
    Failure run(const PublicationTimes& pTimes);

    // Whether a run() found the record behind the repository.
    bool hasRaised() const { return mRaised; }

    // After run(): removes what no metadata has referred to for pGrace seconds, or more.
    Failure prune(const QDateTime& pNow, qint64 pGrace);

private:
    Failure checkTarget(const QString& pName) const;
    Failure checkTargets() const;
    Failure catchUp();
    Failure readKeys();
    Failure signFiles(const PublicationTimes& pTimes);
    void noteWithdrawn();
    void noteUnreferenced(const QDateTime& pNow);
    QSet<QString> referencedFiles() const;
    bool isFresh(const QString& pRole, const PublishedFile& pFile, const QDateTime& pExpires,
                 const PublicationTimes& pTimes) const;
    Failure write(const QString& pPath, const QByteArray& pFile);
    Failure writeVersioned(const QString& pRole, const QByteArray& pFile, const QDateTime& pExpires,
                           PublishedFile* pTo);
    Failure writeRoot();

    os::FileSystem& mFileSystem;
    QString mRepository;
    KeyFolder& mKeys;
    QMap<QString, QList<tuf::SigningKey>> mSigners; // role -> keys
    bool mRaised = false;
};

} // namespace tarn::vkpublish
