#pragma once

#include "internal/Failure.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"

#include <QtCore/QSet>
#include <QtCore/QStringList>

namespace tarn::os {
class FileSystem;
}

namespace tarn::packages {

// Reads what the generations below an install folder say. Changes nothing and needs no lock.
class GenerationReader
{
public:
    GenerationReader(os::FileSystem& pFileSystem, const PackageFolders& pFolders)
        : mFileSystem(pFileSystem), mFolders(pFolders)
    {
    }

    // The manifest of what is installed; an empty one where nothing ever was. Where that of the current
    // generation is damaged, the newest sound one before it counts, and *pDamage says so (a sentence without
    // its full stop).
    Failure current(Manifest* pTo, QString* pDamage = nullptr);
    Failure manifest(qint64 pNumber, Manifest* pTo);

    // All generations that are there, in no order.
    QList<qint64> numbers() const;
    // The package folders, in the form of manifests, that a generation names: in its manifest or, where that
    // is damaged, by its links.
    QStringList folders(qint64 pNumber);

    // What must stay: the current generation and the one before it, with their package folders.
    struct Kept
    {
        QSet<qint64> mNumbers;
        QSet<QString> mFolders;     // absolute paths
        QSet<QString> mRealFolders; // without links on the way

        // True for one of these folders, by whatever way its absolute path goes there.
        bool has(const QString& pFolder) const;
    };
    // With what current() gives. Nothing is kept where that fails.
    Failure kept(Kept* pTo, Manifest* pCurrent, QString* pDamage = nullptr);

    // What runs announced to unpack and may have left behind; empty where all of them ended in order.
    Failure intent(Manifest* pTo);

private:
    Failure currentNumber(qint64* pTo) const;
    bool newestSoundBefore(qint64 pNumber, Manifest* pTo);
    Failure read(const QString& pPath, Manifest* pTo);
    void keep(qint64 pNumber, const QStringList& pFolders, Kept* pTo) const;

    os::FileSystem& mFileSystem;
    PackageFolders mFolders;
};

} // namespace tarn::packages
