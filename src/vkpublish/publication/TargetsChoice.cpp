#include "publication/TargetsChoice.h"

#include "keys/KeyFolder.h"
#include "publication/Drafts.h"
#include "publication/Layout.h"

#include "os/FileTools.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr qint64 sMaxMetadata = 16 * 1024 * 1024;

bool isPublished(const Record& pRecord, const Draft& pDraft)
{
    const QJsonObject& tMeta = pRecord.mPublishedTargetsFile.mMeta;
    return !tMeta.isEmpty() && tMeta["version"_L1].toInteger() == pDraft.toSigned().mVersion;
}

// Why the draft can't be published; with the signatures of the keys here if it can.
Failure complete(const KeyFolder& pKeys, const SignatureNeeds& pNeeds, const TargetsState& pState,
                 Draft* pDraft)
{
    if (Failure tFailure = checkFit(pKeys, *pDraft, pState.mOffered, pState.mNow)) {
        return tFailure.as(Failure::Kind::Person);
    }
    const int tMissing = pNeeds.missing(pDraft->toSigned(), pKeys.here(pNeeds.keyIds()));
    if (tMissing > 0) {
        return {Failure::Kind::Person,
                u"The draft of the targets waits, %1: take them with \"vkpublish add-signature DIR targets "
                "FILE\""_s.arg(missingText(tMissing))};
    }
    return signHere(pKeys, pNeeds, pDraft);
}

Failure nobodyHere(int pMissing)
{
    return {Failure::Kind::Person,
            u"A new list of packages is needed, and %1: begin with \"vkpublish payload DIR targets\""_s.arg(
                missingText(pMissing))};
}

} // namespace

Result<TargetsChoice> chooseTargets(const KeyFolder& pKeys, const TargetsState& pState, QStringList* pNotes)
{
    const Record& tRecord = pKeys.mRecord;
    const SignatureNeeds tNeeds = SignatureNeeds::of(pKeys, tuf::sTargets, pState.mNow);
    const Result<std::optional<Draft>> tDraft = pKeys.draft(tuf::sTargets);
    if (!tDraft) {
        return tDraft.failure();
    }
    Failure tReason;
    if (*tDraft && !isPublished(tRecord, **tDraft)) {
        Draft tSigned = **tDraft;
        tReason = complete(pKeys, tNeeds, pState, &tSigned);
        if (!tReason) {
            return TargetsChoice{.mSource = TargetsChoice::Source::Draft, .mDraft = tSigned};
        }
    }
    const bool tIsSame = pState.mIsUsable && pState.mOffered == tRecord.mPublishedTargets;
    const int tMissing = tNeeds.missing(tuf::Signed(), pKeys.here(tNeeds.keyIds()));
    if (!(tIsSame && pState.mIsFresh)) {
        if (tMissing == 0) {
            return TargetsChoice{.mSource = TargetsChoice::Source::KeysHere, .mDraft = {}};
        }
        tReason = tReason ? tReason : nobodyHere(tMissing);
    }
    if (!tIsSame) {
        return tReason;
    }
    if (tReason) {
        pNotes->append(tReason.mText);
    }
    return TargetsChoice();
}

QByteArray fileOfDraft(os::FileSystem& pFileSystem, const KeyFolder& pKeys, const QString& pRepository,
                       const Draft& pDraft, const QDateTime& pNow)
{
    const QString tPath = versionedPath(pRepository, tuf::sTargets, pDraft.toSigned().mVersion);
    const Result<QByteArray> tPresent = os::readFile(pFileSystem, tPath, sMaxMetadata);
    tuf::Targets tTargets;
    return tPresent && !tuf::parseTargets(*tPresent, tuf::sTargets, &tTargets) &&
                   tTargets.mMessage == pDraft.mPayload &&
                   SignatureNeeds::of(pKeys, tuf::sTargets, pNow).areMet(tTargets)
               ? *tPresent
               : pDraft.file();
}

} // namespace tarn::vkpublish
