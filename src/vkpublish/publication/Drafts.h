// New roots and lists of packages that need signatures of keys that are not in the key folder.
#pragma once

#include "keys/RootDocument.h"
#include "keys/SignatureNeeds.h"
#include "record/Draft.h"
#include "record/TargetList.h"

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

class KeyFolder;

// The root as the next publication will have it: that of the draft, or else of the record.
Result<RootDocument> nextRoot(const KeyFolder& pKeys);

// Makes a draft of this root, and writes the record with it. *pVoid: how many signatures of the draft before
// it are void. A failure if a role could not reach its threshold.
Failure draftRoot(KeyFolder* pKeys, const RootDocument& pRoot, const QDateTime& pExpires, qsizetype* pVoid);

// Makes a draft of the targets of the record, under a version of its own, and writes the record.
Failure draftTargets(KeyFolder* pKeys, const QDateTime& pExpires);

// Gives a draft up. Keys that it would have removed as lost sign again.
Failure discardDraft(KeyFolder* pKeys, const QString& pRole);

// The signatures that this draft needs.
Result<SignatureNeeds> needsOf(const KeyFolder& pKeys, const Draft& pDraft, const QDateTime& pNow);

// How many signatures the draft needs in addition to those that it has and those of the keys that are here.
Result<int> missingSignatures(const KeyFolder& pKeys, const Draft& pDraft, const QDateTime& pNow);

// Adds the signatures of the keys that are here.
Failure signHere(const KeyFolder& pKeys, const SignatureNeeds& pNeeds, Draft* pDraft);

// Why a draft can't be published any more: pOffered is what would be, of a draft of the targets.
Failure checkFit(const KeyFolder& pKeys, const Draft& pDraft, const TargetList& pOffered,
                 const QDateTime& pNow);

// "1 signature is missing", "2 signatures are missing".
QString missingText(int pCount);

} // namespace tarn::vkpublish
