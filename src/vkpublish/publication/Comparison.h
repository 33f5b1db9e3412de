#pragma once

#include "publication/RepositoryState.h"

#include <QtCore/QJsonObject>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

// A repository and another copy of it, such as the one that machines use.
struct Comparison
{
    RepositoryState mHere;
    RepositoryState mThere;
    QJsonObject mThereTargets;
    QStringList mOnlyThere; // of these: archives that are not offered here with the same content
    QStringList mProblems;  // why machines refuse one of them
    QStringList mWarnings;  // what was not copied yet, and what expires there soon
};

// Reads both from a root on. pPlace: the name of the other one in messages. pDays: as for expiryWarnings().
Comparison compareStates(tuf::Fetcher& pHere, tuf::Fetcher& pThere, const QByteArray& pRoot,
                         const QString& pPlace, const QDateTime& pNow, int pDays);

} // namespace tarn::vkpublish
