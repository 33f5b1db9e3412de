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
    QStringList mUnused;      // files that nothing refers to
    QList<QByteArray> mRoots; // the given one, and those that follow; where there are no problems, each is
                              // signed by the one before
    int mPackageCount = 0;
};

// Goes through a repository as a client does that knows nothing but pRoot, reads every package and checks
// that each file is, byte for byte, as it was written. Needs no keys.
VerificationResult verifyRepository(const QString& pRepository, const QByteArray& pRoot,
                                    const QDateTime& pNow);

} // namespace tarn::vkpublish
