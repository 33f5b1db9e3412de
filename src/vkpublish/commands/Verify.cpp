#include "commands/Commands.h"

#include "CommandLine.h"
#include "keys/KeyFolder.h"
#include "network/MetadataSource.h"
#include "publication/Layout.h"
#include "publication/RepositoryState.h"
#include "publication/Verification.h"

#include "internal/PlainText.h"
#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Metadata.h"

#include <QtCore/QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr qint64 sMaxRoot = 512 * 1024;

void declare(CommandLine* pLine)
{
    pLine->addRepository();
    pLine->addOption(u"root"_s,
                     u"The root to start from, which you trust; by default the repository's "
                     "first, if the key folder knows it"_s,
                     u"FILE"_s);
    pLine->addOption(u"against"_s,
                     u"Compare the versions with those of the repository in that folder or at "
                     "that https address"_s,
                     u"PLACE"_s);
    pLine->addOption(u"ca-file"_s, u"CA certificates to trust for that address"_s, u"FILE"_s);
}

// True if the root is known to be of the right repository: the user named it, or the key folder has it.
bool hasVoucher(const CommandLine& pLine)
{
    return pLine.isSet("root") || pLine.isSet("keys") || QFileInfo::exists(pLine.keys() + "/record.json"_L1);
}

// A failure if the roots do not lead to the one in the key folder's record.
Failure checkKeys(const CommandLine& pLine, const QList<QByteArray>& pRoots)
{
    KeyFolder tKeys(os::realFileSystem(), pLine.keys());
    if (Failure tFailure = tKeys.openForReading()) {
        return tFailure;
    }
    if (!pRoots.contains(tKeys.mRecord.mRoot)) {
        return Failure::content(
            u"The roots do not lead to the one in the record of %1: this is another "
            "repository, or a rotate-key was interrupted, and \"vkpublish publish\" makes it "
            "good"_s.arg(tKeys.path()));
    }
    return {};
}

QString compare(qint64 pHere, qint64 pThere)
{
    return pHere < pThere ? u"behind"_s : pHere > pThere ? u"ahead"_s : u"the same"_s;
}

// Prints the versions of both. A failure if clients that have seen the other one refuse this one.
Failure checkVersions(const RepositoryState& pHere, const RepositoryState& pThere, const QString& pPlace)
{
    Failure tFailure;
    for (auto tIt = pThere.mVersions.begin(); tIt != pThere.mVersions.end(); ++tIt) {
        const qint64 tHere = pHere.mVersions.value(tIt.key());
        say(u"%1: version %2 here, %3 there: %4"_s.arg(tIt.key())
                .arg(tHere)
                .arg(tIt.value())
                .arg(compare(tHere, tIt.value())));
        if (tHere < tIt.value()) {
            tFailure =
                Failure::content(u"The repository is behind %1, and machines that know that one refuse it: "
                                 "publish with --above %1"_s.arg(pPlace));
        }
    }
    const qsizetype tRoots = std::min(pHere.mNewRoots.size(), pThere.mNewRoots.size());
    if (pHere.mNewRoots.first(tRoots) != pThere.mNewRoots.first(tRoots)) {
        return Failure::content(
            u"The roots differ from those at %1, and machines that know these refuse "
            "the repository: a key was replaced twice, from the same backup"_s.arg(pPlace));
    }
    if (!tFailure && pHere.mVersions[tuf::sTimestamp] == pThere.mVersions[tuf::sTimestamp] &&
        pHere.mTimestamp != pThere.mTimestamp) {
        return Failure::content(u"The timestamp has the same version at %1, but other content: machines "
                                "keep the one that they saw first. Publish with --above %1"_s.arg(pPlace));
    }
    return tFailure;
}

Failure compareWith(tuf::Fetcher& pOther, const CommandLine& pLine, const QByteArray& pRoot)
{
    FolderFetcher tFolder(os::realFileSystem(), metadataFolder(pLine.repository()));
    RepositoryState tHere;
    RepositoryState tThere;
    if (Failure tFailure = readState(tFolder, pRoot, &tHere)) {
        return tFailure;
    }
    if (Failure tFailure = readState(pOther, pRoot, &tThere)) {
        return tFailure;
    }
    return checkVersions(tHere, tThere, pLine.value("against"));
}

// The reasons why the repository is invalid.
QStringList findProblems(const CommandLine& pLine, const QByteArray& pRoot, tuf::Fetcher* pOther,
                         int* pPackageCount)
{
    const VerificationResult tResult =
        verifyRepository(pLine.repository(), pRoot, QDateTime::currentDateTimeUtc());
    for (const QString& tRelease : tResult.mReleases) {
        say(vkcore::singleLine(tRelease, vkcore::sMaxMessage));
    }
    for (const QString& tPath : tResult.mUnused) {
        say(u"Unreferenced: %1"_s.arg(vkcore::singleLine(tPath, vkcore::sMaxMessage)));
    }
    *pPackageCount = tResult.mPackageCount;
    QStringList tProblems = tResult.mProblems;
    if (!pLine.isSet("root") && hasVoucher(pLine)) {
        if (const Failure tFailure = checkKeys(pLine, tResult.mRoots)) {
            tProblems.append(tFailure.mText);
        }
    }
    if (pOther != nullptr) {
        if (const Failure tFailure = compareWith(*pOther, pLine, pRoot)) {
            tProblems.append(tFailure.mText);
        }
    }
    return tProblems;
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
    std::unique_ptr<tuf::Fetcher> tOther;
    if (tLine.isSet("against") && !tLine.openPlace("against", &tOther)) {
        return StatusUsage;
    }
    const QString tRootPath =
        tLine.isSet("root") ? tLine.value("root") : versionedPath(tLine.repository(), tuf::sRoot, 1);
    const Result<QByteArray> tRoot = os::readFile(os::realFileSystem(), tRootPath, sMaxRoot);
    if (!tRoot) {
        complain(tRoot.failure().mText);
        return StatusFailed;
    }
    int tPackageCount = 0;
    const QStringList tProblems = findProblems(tLine, *tRoot, tOther.get(), &tPackageCount);
    for (const QString& tProblem : tProblems) {
        complain(tProblem);
    }
    if (!tProblems.isEmpty()) {
        return StatusFailed;
    }
    if (!hasVoucher(tLine)) {
        complain(u"The repository is complete: %1 packages. But its root is not trusted, so anybody "
                 "could have made it: give one that you trust with --root"_s.arg(tPackageCount));
        return StatusUnvouched;
    }
    say(u"The repository is valid: %1 packages"_s.arg(tPackageCount));
    return StatusDone;
}

} // namespace tarn::vkpublish
