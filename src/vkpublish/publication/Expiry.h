// How long the signed files of a repository are still valid.
#pragma once

#include "publication/RepositoryState.h"

#include <QtCore/QStringList>

namespace tarn::vkpublish {

// When machines refuse the state: with the first of its files. Invalid for a state that was not read.
QDateTime firstExpiry(const RepositoryState& pState);

// Whole days from pNow on; negative if it has expired.
qint64 daysLeft(const QDateTime& pNow, const QDateTime& pExpires);

// One line for each file that expires within pDays: root and targets, whose keys people keep, within 90 and
// 30 days at least. pPlace: where the state is, to begin the lines with; empty: here.
QStringList expiryWarnings(const RepositoryState& pState, const QDateTime& pNow, int pDays,
                           const QString& pPlace);

} // namespace tarn::vkpublish
