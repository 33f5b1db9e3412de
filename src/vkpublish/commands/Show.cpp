#include "commands/Commands.h"

#include "CommandLine.h"
#include "commands/DraftReport.h"
#include "commands/Json.h"
#include "commands/OfflineKeys.h"
#include "keys/KeyFolder.h"
#include "keys/Roles.h"
#include "publication/Drafts.h"
#include "review/Review.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// pReport: what a draft still needs; null for a file.
void print(const CommandLine& pLine, const Payload& pNew, const QStringList& pReview, const QString& pReport)
{
    if (pLine.isSet("json")) {
        sayJson({{u"role"_s, pNew.mRole},
                 {u"version"_s, pNew.mVersion},
                 {u"expires"_s, pNew.mSigned["expires"_L1]},
                 {u"review"_s, QJsonArray::fromStringList(pReview)},
                 {u"report"_s, jsonText(pReport)}});
        return;
    }
    for (const QString& tText : pReview) {
        say(tText);
    }
    if (!pReport.isNull()) {
        say(pReport);
    }
}

Failure showFile(const CommandLine& pLine)
{
    const Result<QByteArray> tFile = os::readFile(os::realFileSystem(), pLine.argument(0), sMaxPayloadFile);
    const Result<Payload> tPayload = tFile ? readPayload(*tFile) : tFile.failure();
    if (!tPayload) {
        return tPayload.failure();
    }
    QList<OfflineKey> tKeys;
    const Result<QStringList> tReview = reviewOffline(pLine, *tPayload, &tKeys);
    if (!tReview) {
        return tReview.failure();
    }
    print(pLine, *tPayload, *tReview, QString());
    return {};
}

// A list of packages of the record.
Result<Payload> payloadOf(qint64 pVersion, const QDateTime& pExpires, const TargetList& pTargets)
{
    return readBytesToSign(targetsPart(pVersion, pExpires, pTargets));
}

Result<std::optional<Payload>> published(const Record& pRecord, const QString& pRole)
{
    if (pRole == tuf::sTargets && pRecord.mPublishedTargetsFile.mMeta.isEmpty()) {
        return std::optional<Payload>();
    }
    const PublishedFile& tFile = pRecord.mPublishedTargetsFile;
    const Result<Payload> tPayload =
        pRole == tuf::sRoot
            ? readPayload(pRecord.mRoot)
            : payloadOf(tFile.mMeta["version"_L1].toInteger(), tFile.mExpires, pRecord.mPublishedTargets);
    return tPayload ? Result(std::optional(*tPayload)) : tPayload.failure();
}

Failure showDraft(const CommandLine& pLine)
{
    KeyFolder tKeys(os::realFileSystem(), pLine.keys());
    if (Failure tFailure = tKeys.openForReading()) {
        return tFailure;
    }
    const QString tRole = pLine.argument(1);
    const Result<std::optional<Draft>> tDraft = tKeys.draft(tRole);
    if (!tDraft || !*tDraft) {
        return tDraft ? Failure::content(u"There is no draft of the %1"_s.arg(tRole)) : tDraft.failure();
    }
    const Result<Payload> tNew = readBytesToSign((*tDraft)->mPayload);
    const Result<std::optional<Payload>> tBefore = published(tKeys.mRecord, tRole);
    if (!tNew || !tBefore) {
        return tNew ? tBefore.failure() : tNew.failure();
    }
    const Result<QString> tReport = draftReport(tKeys, **tDraft, pLine);
    if (tReport) {
        print(pLine, *tNew, review(*tNew, *tBefore, u"which is published"_s), *tReport);
    }
    return tReport.failure();
}

} // namespace

int cmdShow(const QStringList& pArguments)
{
    CommandLine tLine(u"show"_s, u"Shows in plain words what a payload or a metadata file of root or targets "
                                 "changes, or a repository's draft and what it still needs."_s);
    tLine.addArgument(u"FILE|DIR"_s, u"A file, or the folder of a repository"_s);
    tLine.addOptionalArgument(u"ROLE"_s, u"root or targets, for a repository"_s);
    addOfflineKeys(&tLine);
    tLine.addJson();
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const bool tIsFile = tLine.argument(1).isNull();
    if (!tIsFile && !isDraftRole(tLine.argument(1))) {
        return StatusUsage;
    }
    if (const Failure tFailure = tIsFile ? showFile(tLine) : showDraft(tLine)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    return StatusDone;
}

} // namespace tarn::vkpublish
