#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::packages {

struct Manifest;

// The generation that has not proven itself yet, stored as STATEDIR/trial.json from before the switch to it
// until it has, or until the one before it counts again. docs/file-formats.md has an example.
struct TrialRecord
{
    static constexpr int sMaxAttempts = 3;

    qint64 mGeneration = 0; // 0: none is on trial
    QString mRun;           // the id of the run that made it: numbers are used again
    qint64 mBack = 0;       // the generation that counts again if it fails
    int mAttempts = 0;      // how often its checks were begun
    QString mVerdict;       // why it has to go back; empty: nothing is decided

    bool isOf(const Manifest& pManifest) const;

    QByteArray toBytes() const;
    static Result<TrialRecord> fromBytes(const QByteArray& pBytes);

    // Reads the file; Content if it is damaged.
    static Result<TrialRecord> load(os::FileSystem& pFileSystem, const QString& pStateDir);
    // Replaces the file atomically and durably.
    Failure store(os::FileSystem& pFileSystem, const QString& pStateDir) const;
    static Failure remove(os::FileSystem& pFileSystem, const QString& pStateDir);
};

} // namespace tarn::packages
