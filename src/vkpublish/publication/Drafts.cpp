#include "publication/Drafts.h"

#include "keys/KeyFolder.h"
#include "keys/Roles.h"

#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// A list of packages that machines would not read.
constexpr qsizetype sMaxPayload = 15 * 1024 * 1024;

Failure checkThresholds(const RootDocument& pRoot)
{
    for (const QString& tRole : roleNames()) {
        const qsizetype tKeys = pRoot.keyIds(tRole).size();
        if (pRoot.threshold(tRole) < 1 || pRoot.threshold(tRole) > tKeys) {
            return Failure::content(
                u"The role %1 would have %2 keys and need %3 signatures"_s.arg(tRole).arg(tKeys).arg(
                    pRoot.threshold(tRole)));
        }
    }
    return {};
}

} // namespace

Result<RootDocument> nextRoot(const KeyFolder& pKeys)
{
    const Result<std::optional<Draft>> tDraft = pKeys.draft(tuf::sRoot);
    if (!tDraft) {
        return tDraft.failure();
    }
    const bool tIsNewer = *tDraft && (*tDraft)->toSigned().mVersion > pKeys.mRecord.mVersions[tuf::sRoot];
    return RootDocument::read(tIsNewer ? unsignedFile((*tDraft)->mPayload) : pKeys.mRecord.mRoot);
}

Failure draftRoot(KeyFolder* pKeys, const RootDocument& pRoot, const QDateTime& pExpires, qsizetype* pVoid)
{
    if (Failure tFailure = checkThresholds(pRoot)) {
        return tFailure;
    }
    const Result<std::optional<Draft>> tBefore = pKeys->draft(tuf::sRoot);
    if (!tBefore) {
        return tBefore.failure();
    }
    *pVoid = *tBefore ? (*tBefore)->mSignatures.size() : 0;
    // First the record: it knows the new keys' files.
    if (Failure tFailure = pKeys->save()) {
        return tFailure;
    }
    return pKeys->saveDraft({.mRole = tuf::sRoot,
                             .mPayload = pRoot.payload(pKeys->mRecord.mVersions[tuf::sRoot] + 1, pExpires),
                             .mSignatures = {}});
}

Failure draftTargets(KeyFolder* pKeys, const QDateTime& pExpires)
{
    Record& tRecord = pKeys->mRecord;
    const qint64 tVersion = ++tRecord.mVersions[tuf::sTargets];
    const Draft tDraft{.mRole = tuf::sTargets,
                       .mPayload = targetsPart(tVersion, pExpires, tRecord.mTargets),
                       .mSignatures = {}};
    if (tDraft.mPayload.isEmpty() || tDraft.mPayload.size() > sMaxPayload) {
        return Failure::content(u"The list of packages is too large"_s);
    }
    // First the record: a version is used once.
    if (Failure tFailure = pKeys->save()) {
        return tFailure;
    }
    return pKeys->saveDraft(tDraft);
}

Failure discardDraft(KeyFolder* pKeys, const QString& pRole)
{
    if (Failure tFailure = pKeys->dropDraft(pRole)) {
        return tFailure;
    }
    const Result<RootDocument> tRoot = RootDocument::read(pKeys->mRecord.mRoot);
    if (!tRoot) {
        return tRoot.failure();
    }
    const auto tMaySign = [&](const QString& pId) { return !tRoot->publicJson(pId).isEmpty(); };
    return pRole == tuf::sRoot && pKeys->mRecord.mLostKeys.removeIf(tMaySign) > 0 ? pKeys->save() : Failure();
}

Result<SignatureNeeds> needsOf(const KeyFolder& pKeys, const Draft& pDraft, const QDateTime& pNow)
{
    if (pDraft.mRole == tuf::sRoot) {
        return SignatureNeeds::ofRoot(pKeys, unsignedFile(pDraft.mPayload));
    }
    const Result<std::optional<Draft>> tRoot = pKeys.draft(tuf::sRoot);
    if (!tRoot) {
        return tRoot.failure();
    }
    const bool tIsNewer = *tRoot && (*tRoot)->toSigned().mVersion > pKeys.mRecord.mVersions[tuf::sRoot];
    return SignatureNeeds::of(pKeys, pDraft.mRole, pNow,
                              tIsNewer ? unsignedFile((*tRoot)->mPayload) : QByteArray());
}

Result<int> missingSignatures(const KeyFolder& pKeys, const Draft& pDraft, const QDateTime& pNow)
{
    const Result<SignatureNeeds> tNeeds = needsOf(pKeys, pDraft, pNow);
    if (!tNeeds) {
        return tNeeds.failure();
    }
    return tNeeds->missing(pDraft.toSigned(), pKeys.here(tNeeds->keyIds()));
}

Failure signHere(const KeyFolder& pKeys, const SignatureNeeds& pNeeds, Draft* pDraft)
{
    QStringList tIds = pNeeds.keyIds();
    for (const tuf::Signature& tSignature : pDraft->mSignatures) {
        tIds.removeAll(tSignature.mKeyId);
    }
    const Result<QList<Signer>> tSigners = pKeys.readSigners(tIds);
    if (!tSigners) {
        return tSigners.failure();
    }
    const Result<QList<tuf::Signature>> tSignatures = signBytes(pDraft->mPayload, *tSigners);
    if (tSignatures) {
        pDraft->mSignatures += *tSignatures;
    }
    return tSignatures.failure();
}

Failure checkFit(const KeyFolder& pKeys, const Draft& pDraft, const TargetList& pOffered,
                 const QDateTime& pNow)
{
    const tuf::Signed tSigned = pDraft.toSigned();
    const bool tIsRoot = pDraft.mRole == tuf::sRoot;
    const QString tNext = u"write a new one with \"vkpublish payload DIR %1 --renew\""_s.arg(pDraft.mRole);
    if (tSigned.mExpires <= pNow) {
        return Failure::content(u"The draft of the %1 has expired: %2"_s.arg(pDraft.mRole, tNext));
    }
    const qint64 tVersion = pKeys.mRecord.mVersions[pDraft.mRole] + (tIsRoot ? 1 : 0);
    if (tSigned.mVersion != tVersion) {
        return Failure::content(
            u"The draft of the %1 no longer fits, because a version after it was published: %2"_s.arg(
                pDraft.mRole, tNext));
    }
    if (!tIsRoot &&
        TargetList(QJsonDocument::fromJson(pDraft.mPayload)["targets"_L1].toObject()) != pOffered) {
        return Failure::content(u"The draft of the targets no longer fits, because packages were added, "
                                u"removed or changed since: "
                                "%1"_s.arg(tNext));
    }
    return {};
}

QString missingText(int pCount)
{
    return pCount == 1 ? u"1 signature is missing"_s : u"%1 signatures are missing"_s.arg(pCount);
}

} // namespace tarn::vkpublish
