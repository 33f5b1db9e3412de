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

// Reads the generations of an install folder. Changes nothing and needs no lock.
class GenerationReader
{
public:
    // pKept: how many generations before the current one are kept.
    GenerationReader(os::FileSystem& pFileSystem, const PackageFolders& pFolders, int pKept = 1)
        : mFileSystem(pFileSystem), mFolders(pFolders), mKept(pKept)
    {
    }

    // The manifest of the installed packages; empty if nothing was ever installed. If that of the current
    // generation is damaged, the newest valid one before it counts, and *pDamage says so (a sentence without
    // its full stop).
    Failure current(Manifest* pTo, QString* pDamage = nullptr);
    Failure manifest(qint64 pNumber, Manifest* pTo);
    // The same of one that can be used: its packages below the install folder exist, too, while a failed run
    // may have left a manifest alone.
    Failure sound(qint64 pNumber, Manifest* pTo);

    // All generations that are there, in no order.
    QList<qint64> numbers() const;
    // The package folders, in manifest form, that a generation refers to: in its manifest or, if that is
    // damaged, by its links.
    QStringList folders(qint64 pNumber);

    // What must be kept: the current generation and those before it, with their package folders.
    struct Kept
    {
        QSet<qint64> mNumbers;
        QSet<QString> mFolders;     // absolute paths
        QSet<QString> mRealFolders; // without links

        // True for one of these folders, by any absolute path.
        bool has(const QString& pFolder) const;
    };
    // The numbers of the generations before pCurrent that are kept, the newest first.
    QList<qint64> before(const Manifest& pCurrent);
    // Based on current(). Nothing is kept if that fails.
    Failure kept(Kept* pTo, Manifest* pCurrent, QString* pDamage = nullptr);

    // What runs recorded before unpacking and may have left behind; empty if all of them ended cleanly.
    Failure intent(Manifest* pTo);
    // Packages whose staging folders a run has left for a later one. A claim, not a proof.
    Failure prepared(Manifest* pTo);

private:
    Failure currentNumber(qint64* pTo) const;
    bool newestSoundBefore(qint64 pNumber, Manifest* pTo);
    Failure read(const QString& pPath, Manifest* pTo);
    void keep(qint64 pNumber, const QStringList& pFolders, Kept* pTo) const;

    os::FileSystem& mFileSystem;
    PackageFolders mFolders;
    int mKept;
};

} // namespace tarn::packages
