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

    // True if the last complete run saw pState with the timestamp that is stored now, and nothing of the
    // metadata has expired since.
    bool isComplete(const QByteArray& pState) const;
    const Validators& timestampValidators() const { return mTimestampValidators; }
    QByteArray timestamp() const;

    // Both leave the note out silently if it can't be written: without it, more is asked than needed.
    void noteComplete(const QByteArray& pState, const Validators& pTimestamp);
    void forgetComplete();

private:
    Trouble initialize(const QByteArray& pRoot);
    QByteArray seen(const QByteArray& pState) const;
    void readNote();
    void writeNote();
    QDateTime earliestExpiry() const;

    os::FileSystem& mFileSystem;
    QString mPath;
    QString mNotePath;
    QByteArray mRootHash;
    QByteArray mCompleteState;
    QDateTime mCompleteUntil;
    Validators mTimestampValidators;
};

} // namespace tarn::vkservice::update
