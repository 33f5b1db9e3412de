#include "commands/Commands.h"

#include "CommandLine.h"
#include "commands/Json.h"
#include "keys/KeyFolder.h"
#include "keys/Roles.h"
#include "network/MetadataSource.h"
#include "publication/Comparison.h"
#include "publication/Expiry.h"
#include "publication/Layout.h"
#include "publication/Verification.h"

#include "internal/PlainText.h"
#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Metadata.h"

#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

void declare(CommandLine* pLine)
{
    pLine->addRepository();
    pLine->addOption(u"root"_s,
                     u"The root to start from, which you trust; by default the repository's "
                     "first, if the key folder knows it"_s,
                     u"FILE"_s);
    pLine->addOption(u"against"_s,
                     u"Compare with the repository in that folder or at that https address: versions, and "
                     "whether it is fresh"_s,
                     u"PLACE"_s);
    pLine->addOption(u"ca-file"_s, u"CA certificates to trust for that address"_s, u"FILE"_s);
    pLine->addOption(u"warn-days"_s,
                     u"End with 4 if a file expires that soon; without it only a warning, 3 days before"_s,
                     u"DAYS"_s, u"3"_s);
    pLine->addJson();
}

struct Job
{
    std::unique_ptr<tuf::Fetcher> mOther;
    int mWarnDays = 0;
    QDateTime mNow = QDateTime::currentDateTimeUtc();
};

struct Findings
{
    VerificationResult mResult;
    RepositoryState mState;
    std::optional<Comparison> mComparison;
    bool mIsTrusted = false;
    QStringList mProblems;
    QStringList mWarnings;
};

// True if the root is known to be of the right repository: the user named it, or the key folder has it.
bool hasVoucher(const CommandLine& pLine)
{
    return pLine.isSet("root") || pLine.isSet("keys") || QFileInfo::exists(pLine.keys() + "/record.json"_L1);
}

// A failure if the roots do not lead to the one in the key folder's record.
Failure checkRoots(const KeyFolder& pKeys, const QList<QByteArray>& pRoots)
{
    if (!pRoots.contains(pKeys.mRecord.mRoot)) {
        return Failure::content(
            u"The roots do not lead to the one in the record of %1: this is another "
            "repository, or a rotate-key was interrupted, and \"vkpublish publish\" makes it "
            "good"_s.arg(pKeys.path()));
    }
    return {};
}

// What this publisher has added or withdrawn is no surprise.
void dropKnown(const Record& pRecord, Comparison* pFrom)
{
    pFrom->mOnlyThere.removeIf([&](const QString& pArchive) {
        const QJsonValue tHashes = pFrom->mThereTargets[pArchive]["hashes"_L1];
        return pRecord.mTargets[pArchive]["hashes"_L1] == tHashes ||
               pRecord.mPublishedTargets[pArchive]["hashes"_L1] == tHashes ||
               pRecord.mWithdrawnTargets[pArchive]["hashes"_L1] == tHashes;
    });
}

// What the record has to say about the repository, and about the other one.
Failure checkRecord(const CommandLine& pLine, Findings* pTo)
{
    KeyFolder tKeys(os::realFileSystem(), pLine.keys());
    if (Failure tFailure = tKeys.openForReading()) {
        return tFailure;
    }
    if (pTo->mComparison) {
        dropKnown(tKeys.mRecord, &*pTo->mComparison);
        if (!pTo->mComparison->mOnlyThere.isEmpty()) {
            pTo->mWarnings.append(
                u"%1 offers what the record does not know: the record is from a backup, and "
                "you add it again, or it was signed with stolen keys"_s.arg(pLine.value("against")));
        }
    }
    return checkRoots(tKeys, pTo->mResult.mRoots);
}

void find(const CommandLine& pLine, const QByteArray& pRoot, const Job& pJob, Findings* pTo)
{
    FolderFetcher tHere(os::realFileSystem(), metadataFolder(pLine.repository()));
    pTo->mResult = verifyRepository(pLine.repository(), pRoot, pJob.mNow);
    pTo->mProblems = pTo->mResult.mProblems;
    (void)readWithTargets(tHere, pRoot, &pTo->mState); // what is wrong with it is known already
    pTo->mWarnings = expiryWarnings(pTo->mState, pJob.mNow, pJob.mWarnDays, {});
    pTo->mIsTrusted = hasVoucher(pLine);
    if (pJob.mOther) {
        pTo->mComparison =
            compareStates(tHere, *pJob.mOther, pRoot, pLine.value("against"), pJob.mNow, pJob.mWarnDays);
        pTo->mProblems += pTo->mComparison->mProblems;
        pTo->mWarnings += pTo->mComparison->mWarnings;
    }
    if (!pLine.isSet("root") && pTo->mIsTrusted) {
        if (const Failure tFailure = checkRecord(pLine, pTo)) {
            pTo->mProblems.append(tFailure.mText);
        }
    }
}

// Warnings count only for who asked for them.
int statusOf(const CommandLine& pLine, const Findings& pFindings)
{
    return !pFindings.mProblems.isEmpty()                               ? StatusFailed
           : !pFindings.mIsTrusted                                      ? StatusUnvouched
           : pLine.isSet("warn-days") && !pFindings.mWarnings.isEmpty() ? StatusExpiring
                                                                        : StatusDone;
}

void printVersions(const Comparison& pComparison)
{
    for (auto tIt = pComparison.mThere.mVersions.begin(); tIt != pComparison.mThere.mVersions.end(); ++tIt) {
        const qint64 tHere = pComparison.mHere.mVersions.value(tIt.key());
        say(u"%1: version %2 here, %3 there: %4"_s.arg(tIt.key())
                .arg(tHere)
                .arg(tIt.value())
                .arg(tHere < tIt.value()   ? u"behind"_s
                     : tHere > tIt.value() ? u"ahead"_s
                                           : u"the same"_s));
    }
}

void print(const CommandLine& pLine, const Findings& pFindings)
{
    const int tPackages = pFindings.mResult.mPackageCount;
    for (const QString& tRelease : pFindings.mResult.mReleases) {
        say(vkcore::singleLine(tRelease, vkcore::sMaxMessage));
    }
    for (const QString& tPath : pFindings.mResult.mUnused) {
        say(u"Unreferenced: %1"_s.arg(vkcore::singleLine(tPath, vkcore::sMaxMessage)));
    }
    if (pFindings.mComparison) {
        printVersions(*pFindings.mComparison);
        for (const QString& tArchive : pFindings.mComparison->mOnlyThere) {
            say(u"Only there: %1"_s.arg(vkcore::singleLine(tArchive, vkcore::sMaxMessage)));
        }
    }
    for (const QString& tWarning : pFindings.mWarnings) {
        complain(u"Warning: %1"_s.arg(tWarning));
    }
    for (const QString& tProblem : pFindings.mProblems) {
        complain(tProblem);
    }
    if (statusOf(pLine, pFindings) == StatusUnvouched) {
        complain(u"The repository is complete: %1 packages. But its root is not trusted, so anybody "
                 "could have made it: give one that you trust with --root"_s.arg(tPackages));
    } else if (pFindings.mProblems.isEmpty()) {
        say(u"The repository is valid: %1 packages"_s.arg(tPackages));
    }
}

QJsonObject json(const CommandLine& pLine, const Findings& pFindings, const QDateTime& pNow)
{
    QJsonObject tObject{{u"status"_s, statusOf(pLine, pFindings)},
                        {u"checked"_s, jsonDate(pNow)},
                        {u"packages"_s, pFindings.mResult.mPackageCount},
                        {u"trusted"_s, pFindings.mIsTrusted},
                        {u"problems"_s, QJsonArray::fromStringList(pFindings.mProblems)},
                        {u"warnings"_s, QJsonArray::fromStringList(pFindings.mWarnings)},
                        {u"releases"_s, QJsonArray::fromStringList(pFindings.mResult.mReleases)},
                        {u"unreferenced"_s, QJsonArray::fromStringList(pFindings.mResult.mUnused)}};
    addValidity(pFindings.mState, pNow, &tObject);
    if (pFindings.mComparison) {
        QJsonObject tAgainst{{u"place"_s, pLine.value("against")},
                             {u"onlyThere"_s, QJsonArray::fromStringList(pFindings.mComparison->mOnlyThere)}};
        addValidity(pFindings.mComparison->mThere, pNow, &tAgainst);
        tObject.insert("against"_L1, tAgainst);
    }
    return tObject;
}

} // namespace

int cmdVerify(const QStringList& pArguments)
{
    CommandLine tLine(u"verify"_s,
                      u"Checks a repository, or a copy of it, as a client would, and the hash of every "
                      "package. Needs no keys, but a root that you trust."_s);
    declare(&tLine);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    Job tJob;
    const std::optional<int> tWarnDays = tLine.number("warn-days", 0, 3650);
    if (!tWarnDays || (tLine.isSet("against") && !tLine.openPlace("against", &tJob.mOther))) {
        return StatusUsage;
    }
    tJob.mWarnDays = *tWarnDays;
    const QString tRootPath =
        tLine.isSet("root") ? tLine.value("root") : versionedPath(tLine.repository(), tuf::sRoot, 1);
    const auto tRoot = os::readFile(os::realFileSystem(), tRootPath, tuf::Limits().mRootLength);
    Findings tFindings;
    if (tRoot) {
        find(tLine, *tRoot, tJob, &tFindings);
    } else {
        tFindings.mProblems.append(tRoot.failure().mText);
    }
    if (tLine.isSet("json")) {
        sayJson(json(tLine, tFindings, tJob.mNow));
    } else {
        print(tLine, tFindings);
    }
    return statusOf(tLine, tFindings);
}

} // namespace tarn::vkpublish
