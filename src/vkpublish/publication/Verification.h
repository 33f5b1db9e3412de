#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

struct VerificationResult
{
    QStringList mProblems;    // empty: the repository is good
    QStringList mUnused;      // files without any reference
    QStringList mReleases;    // which packages are not for all machines at once, and why
    QList<QByteArray> mRoots; // the given one, and those that follow; without problems, each is
                              // signed by the one before
    int mPackageCount = 0;
};

// Checks a repository like a client that only has pRoot, reads every package and checks that each file is
// unchanged, byte for byte. Needs no keys.
VerificationResult verifyRepository(const QString& pRepository, const QByteArray& pRoot,
                                    const QDateTime& pNow);

} // namespace tarn::vkpublish
