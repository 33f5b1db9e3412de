#pragma once

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>
#include <optional>

namespace tarn::os {
class FileSystem;
}

namespace tarn::packages {

// One thing that is wrong in an installed package.
struct Finding
{
    QString mPath;    // relative to the package, as one plain line for people; empty for its folder itself
    QString mProblem; // a word: see problemText()
    std::optional<QString> mExactPath; // where it is another text than mPath, unless it is too long
    static constexpr qsizetype sMaxExactPath = 1000;

    bool operator==(const Finding&) const = default;
};

// What the last verification says about one package folder.
struct PackageCheck
{
    enum class State
    {
        Sound,
        Damaged,
        Unproven, // it has no index to compare it with
    };
    static constexpr qsizetype sMaxFindings = 20;

    QString mFolder; // in manifest form
    State mState = State::Unproven;
    QDateTime mChecked; // its end, UTC
    qint64 mFiles = 0;
    qint64 mBytes = 0;
    qint64 mCount = 0; // of all findings
    QList<Finding> mFindings;

    bool operator==(const PackageCheck&) const = default;
};

QString stateWord(PackageCheck::State pState); // "sound", "damaged", "unproven"
// "bin/viewer has other content".
QString problemText(const Finding& pFinding);

// What is known about the installed files, stored as STATEDIR/damage.json. docs/file-formats.md has an
// example.
struct CheckRecord
{
    QDateTime mSince; // when the wait for the next verification began
    QDateTime mBegan; // the last verification; invalid before the first
    QDateTime mEnded; // the last complete one; before mBegan if a later one has not come to its end
    QList<PackageCheck> mPackages;

    const PackageCheck* find(const QString& pFolder) const;
    void put(const PackageCheck& pCheck); // replaces an earlier one of the folder
    // Forgets a folder that was missing and stands there again; true if there was one.
    bool forgetRestored(const std::function<bool(const QString&)>& pStands);
    // Forgets all other folders; true if there were any.
    bool keepOnly(const QStringList& pFolders);
    QSet<QString> damagedFolders() const;

    QByteArray toBytes() const;
    static Result<CheckRecord> fromBytes(const QByteArray& pBytes);
};

// That file, read once and kept in memory. A file that can't be read counts as a machine that was never
// verified.
class CheckRecordFile
{
public:
    explicit CheckRecordFile(os::FileSystem& pFileSystem) : mFileSystem(pFileSystem) {}

    Failure open(const QString& pStateDir);
    const CheckRecord& record() const { return mRecord; }
    // A change counts at once, and after a restart if it is written.
    CheckRecord& record() { return mRecord; }
    Failure write();

private:
    os::FileSystem& mFileSystem;
    QString mPath;
    CheckRecord mRecord;
};

} // namespace tarn::packages
