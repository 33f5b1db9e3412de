#pragma once

#include "internal/PackageValues.h"
#include "update/Source.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::update {

class TrustFolder;

// What one server offered when all of it was installed that this machine takes, so that a later run only has
// to ask it for one small file.
class ServerNote
{
public:
    // What a complete run left out of the offers.
    struct Rest
    {
        QList<vkcore::protocol::LeftOutPackage> mPackages;
        bool mWaits = false;  // some wait for their phase: a run by hand installs them
        QDateTime mLookAgain; // from then on more may be taken; invalid: only with other choices
    };

    ServerNote(os::FileSystem& pFileSystem, const TrustFolder& pTrust, const QString& pUri);

    // True if the last complete run with this server saw pState, it is not yet time to look again at what it
    // left out, no metadata has expired since, and no server has offered anything newer.
    bool isComplete(const QByteArray& pState, bool pIsScheduled) const;
    const Rest& rest() const { return mRest; }
    // Of the timestamp that the last complete run saw.
    const Validators& timestampValidators() const { return mTimestampValidators; }
    bool isTimestamp(const QByteArray& pFile) const;

    // Skipped silently if it cannot be written: without the note, a later run only sends more requests.
    void setComplete(const QByteArray& pState, const QByteArray& pTimestamp, const Validators& pValidators,
                     const Rest& pRest);

private:
    os::FileSystem& mFileSystem;
    const TrustFolder& mTrust;
    QString mPath;
    QByteArray mCompleteState;
    QDateTime mCompleteUntil;
    QByteArray mTimestampHash;
    Validators mTimestampValidators;
    Rest mRest;
};

} // namespace tarn::vkservice::update
