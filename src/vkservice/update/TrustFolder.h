#pragma once

#include "update/Source.h"
#include "update/Trouble.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkservice::os {
class FileSystem;
}

namespace tarn::vkservice::update {

// The trusted metadata of one server, and beside it a note on what was seen there last.
class TrustFolder
{
public:
    TrustFolder(os::FileSystem& pFileSystem, const QString& pStateDir, const QString& pUri);

    // The folder for tuf::Updater.
    const QString& path() const { return mPath; }

    // Starts the trust from the administrator's root file: the first time, and again when that file
    // has been replaced.
    Trouble prepare(const QString& pRootFile);

    // True if the last complete run saw pState and nothing of the metadata has expired since.
    bool isComplete(const QByteArray& pState) const;
    // Of the timestamp that the last complete run saw. It need not be the stored one, which a run that failed
    // later may have replaced.
    const Validators& timestampValidators() const { return mTimestampValidators; }
    bool isTimestamp(const QByteArray& pFile) const;

    // Both leave the note out silently if it can't be written: without it, more is asked than needed.
    void noteComplete(const QByteArray& pState, const QByteArray& pTimestamp, const Validators& pValidators);
    void forgetComplete();

private:
    Trouble initialize(const QByteArray& pRoot);
    void readNote();
    void writeNote();
    QDateTime earliestExpiry() const;

    os::FileSystem& mFileSystem;
    QString mPath;
    QString mNotePath;
    QByteArray mRootHash;
    QByteArray mCompleteState;
    QDateTime mCompleteUntil;
    QByteArray mTimestampHash;
    Validators mTimestampValidators;
};

} // namespace tarn::vkservice::update
