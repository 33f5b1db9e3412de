#include "commands/Commands.h"

#include "CommandLine.h"
#include "commands/DraftReport.h"
#include "keys/KeyFolder.h"
#include "keys/SignatureFile.h"
#include "publication/Drafts.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Hashes.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr qint64 sMaxSignatureFile = 64 * 1024;

// Another program writes a signature alone, as bytes or in hex.
QByteArray rawSignature(const SignatureNeeds& pNeeds, const Draft& pDraft, const QString& pKeyId,
                        const QByteArray& pFile)
{
    const QByteArray tFromHex = QByteArray::fromHex(pFile.trimmed());
    return pNeeds.verifies(pDraft.mPayload, {pKeyId, tFromHex}) ? tFromHex : pFile;
}

Result<QList<tuf::Signature>> readSignatures(const CommandLine& pLine, const SignatureNeeds& pNeeds,
                                             const Draft& pDraft)
{
    const Result<QByteArray> tFile = os::readFile(os::realFileSystem(), pLine.argument(2), sMaxSignatureFile);
    if (!tFile) {
        return tFile.failure();
    }
    if (pLine.isSet("key-id")) {
        const QString tId = pLine.value("key-id");
        return QList<tuf::Signature>{{tId, rawSignature(pNeeds, pDraft, tId, *tFile)}};
    }
    const Result<SignatureFile> tSignatures = SignatureFile::fromJson(*tFile);
    if (!tSignatures) {
        return tSignatures.failure();
    }
    if (tSignatures->mRole != pDraft.mRole || tSignatures->mSha256 != tuf::sha256(pDraft.mPayload)) {
        return Failure::content(u"The signature is of another payload than the draft of the %1: write that "
                                u"with \"vkpublish payload\" "
                                "and sign it"_s.arg(pDraft.mRole));
    }
    return tSignatures->mSignatures;
}

Failure check(const SignatureNeeds& pNeeds, const Draft& pDraft, const tuf::Signature& pSignature)
{
    if (!pNeeds.keyIds().contains(pSignature.mKeyId)) {
        return Failure::content(
            u"The key %1 does not belong to the role %2"_s.arg(pSignature.mKeyId, pDraft.mRole));
    }
    for (const tuf::Signature& tOther : pDraft.mSignatures) {
        if (tOther.mKeyId == pSignature.mKeyId) {
            return Failure::content(u"The key %1 has signed already"_s.arg(pSignature.mKeyId));
        }
    }
    return pNeeds.verifies(pDraft.mPayload, pSignature)
               ? Failure()
               : Failure::content(u"This is no signature of the key %1 over the draft of the %2"_s.arg(
                     pSignature.mKeyId, pDraft.mRole));
}

Failure addTo(Draft* pDraft, const CommandLine& pLine, KeyFolder* pKeys)
{
    const QDateTime tNow = QDateTime::currentDateTimeUtc();
    if (Failure tFailure = checkFit(*pKeys, *pDraft, pKeys->mRecord.mTargets, tNow)) {
        return tFailure;
    }
    const Result<SignatureNeeds> tNeeds = needsOf(*pKeys, *pDraft, tNow);
    if (!tNeeds) {
        return tNeeds.failure();
    }
    const Result<QList<tuf::Signature>> tSignatures = readSignatures(pLine, *tNeeds, *pDraft);
    if (!tSignatures) {
        return tSignatures.failure();
    }
    for (const tuf::Signature& tSignature : *tSignatures) {
        if (Failure tFailure = check(*tNeeds, *pDraft, tSignature)) {
            return tFailure;
        }
        pDraft->mSignatures.append(tSignature);
    }
    return pKeys->saveDraft(*pDraft);
}

Failure run(const CommandLine& pLine, QString* pReport)
{
    KeyFolder tKeys(os::realFileSystem(), pLine.keys(), pLine.patience());
    if (Failure tFailure = tKeys.open()) {
        return tFailure;
    }
    Result<std::optional<Draft>> tDraft = tKeys.draft(pLine.argument(1));
    if (!tDraft || !*tDraft) {
        return tDraft ? Failure::content(u"There is no draft of the %1"_s.arg(pLine.argument(1)))
                      : tDraft.failure();
    }
    if (Failure tFailure = addTo(&**tDraft, pLine, &tKeys)) {
        return tFailure;
    }
    const Result<QString> tReport = draftReport(tKeys, **tDraft, pLine);
    *pReport = tReport.valueOr(QString());
    return tReport.failure();
}

} // namespace

int cmdAddSignature(const QStringList& pArguments)
{
    CommandLine tLine(
        u"add-signature"_s,
        u"Adds to a draft what was signed on another machine, and says how many signatures are still "
        "missing."_s);
    tLine.addRepository();
    tLine.addNoWait();
    tLine.addArgument(u"ROLE"_s, u"root or targets"_s);
    tLine.addArgument(u"FILE"_s, u"What \"vkpublish sign\" has written"_s);
    tLine.addOption(u"key-id"_s, u"FILE is a signature alone, from another program, with this key"_s,
                    u"ID"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    if (!isDraftRole(tLine.argument(1))) {
        return StatusUsage;
    }
    QString tReport;
    if (const Failure tFailure = run(tLine, &tReport)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    say(tReport);
    return StatusDone;
}

} // namespace tarn::vkpublish
