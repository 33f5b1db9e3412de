#pragma once

#include "update/Source.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::update {

class TrustFolder;

// What one server offered when all of it was installed, so that a later run only has to ask it for one small
// file.
class ServerNote
{
public:
    ServerNote(os::FileSystem& pFileSystem, const TrustFolder& pTrust, const QString& pUri);

    // True if the last complete run with this server saw pState, no metadata has expired since, and no server
    // has offered anything newer.
    bool isComplete(const QByteArray& pState) const;
    // Of the timestamp that the last complete run saw.
    const Validators& timestampValidators() const { return mTimestampValidators; }
    bool isTimestamp(const QByteArray& pFile) const;

    // Skipped silently if it cannot be written: without the note, a later run only sends more requests.
    void setComplete(const QByteArray& pState, const QByteArray& pTimestamp, const Validators& pValidators);

private:
    os::FileSystem& mFileSystem;
    const TrustFolder& mTrust;
    QString mPath;
    QByteArray mCompleteState;
    QDateTime mCompleteUntil;
    QByteArray mTimestampHash;
    Validators mTimestampValidators;
};

} // namespace tarn::vkservice::update
