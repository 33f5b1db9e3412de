#include "commands/Commands.h"

#include "CommandLine.h"
#include "KeyFolder.h"
#include "Layout.h"
#include "MetadataSource.h"
#include "RepositoryState.h"
#include "Verification.h"

#include "internal/PlainText.h"
#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"
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

// Somebody knows that this is the root of the right repository: whoever named it, or the key folder.
bool hasVoucher(const CommandLine& pLine)
{
    return pLine.isSet("root") || pLine.isSet("keys") || QFileInfo::exists(pLine.keys() + "/record.json"_L1);
}

// Whether the roots lead to the one in the key folder's record.
bool isOfTheKeys(const CommandLine& pLine, const QList<QByteArray>& pRoots, QString* pError)
{
    KeyFolder tKeys(os::realFileSystem(), pLine.keys());
    if (!tKeys.openForReading(pError)) {
        return false;
    }
    if (!pRoots.contains(tKeys.mRecord.mRoot)) {
        *pError = u"The roots do not lead to the one in the record of %1: this is another "
                  "repository, or a rotate-key was interrupted, and \"vkpublish publish\" makes it "
                  "good"_s.arg(tKeys.path());
    }
    return pError->isEmpty();
}

QString compare(qint64 pHere, qint64 pThere)
{
    return pHere < pThere ? u"behind"_s : pHere > pThere ? u"ahead"_s : u"the same"_s;
}

// Writes the versions of both. False, with a reason, if machines that know the other one refuse this one.
bool isUpToDate(const RepositoryState& pHere, const RepositoryState& pThere, const QString& pPlace,
                QString* pError)
{
    for (auto tIt = pThere.mVersions.begin(); tIt != pThere.mVersions.end(); ++tIt) {
        const qint64 tHere = pHere.mVersions.value(tIt.key());
        say(u"%1: version %2 here, %3 there: %4"_s.arg(tIt.key())
                .arg(tHere)
                .arg(tIt.value())
                .arg(compare(tHere, tIt.value())));
        if (tHere < tIt.value()) {
            *pError = u"The repository is behind %1, and machines that know that one refuse it: "
                      "publish with --above %1"_s.arg(pPlace);
        }
    }
    const qsizetype tRoots = std::min(pHere.mNewRoots.size(), pThere.mNewRoots.size());
    if (pHere.mNewRoots.first(tRoots) != pThere.mNewRoots.first(tRoots)) {
        *pError = u"The roots differ from those at %1, and machines that know these refuse "
                  "the repository: a key was replaced twice, from the same backup"_s.arg(pPlace);
    } else if (pError->isEmpty() && pHere.mVersions[tuf::sTimestamp] == pThere.mVersions[tuf::sTimestamp] &&
               pHere.mTimestamp != pThere.mTimestamp) {
        *pError = u"The timestamp has the same version at %1, but other content: machines "
                  "keep the one that they saw first. Publish with --above %1"_s.arg(pPlace);
    }
    return pError->isEmpty();
}

bool compareWith(tuf::Fetcher& pOther, const CommandLine& pLine, const QByteArray& pRoot, QString* pError)
{
    FolderFetcher tFolder(os::realFileSystem(), metadataFolder(pLine.repository()));
    RepositoryState tHere;
    RepositoryState tThere;
    Failure tError = readState(tFolder, pRoot, &tHere);
    if (!tError) {
        tError = readState(pOther, pRoot, &tThere);
    }
    *pError = tError.mText;
    return !tError && isUpToDate(tHere, tThere, pLine.value("against"), pError);
}

// The reasons why the repository is not good.
QStringList findProblems(const CommandLine& pLine, const QByteArray& pRoot, tuf::Fetcher* pOther,
                         int* pPackageCount)
{
    const VerificationResult tResult =
        verifyRepository(pLine.repository(), pRoot, QDateTime::currentDateTimeUtc());
    for (const QString& tPath : tResult.mUnused) {
        say(u"Unreferenced: %1"_s.arg(vkcore::singleLine(tPath, vkcore::sMaxMessage)));
    }
    *pPackageCount = tResult.mPackageCount;
    QStringList tProblems = tResult.mProblems;
    QString tError;
    if (!pLine.isSet("root") && hasVoucher(pLine) && !isOfTheKeys(pLine, tResult.mRoots, &tError)) {
        tProblems.append(tError);
    }
    tError.clear();
    if (pOther != nullptr && !compareWith(*pOther, pLine, pRoot, &tError)) {
        tProblems.append(tError);
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
    QByteArray tRoot;
    if (const Failure tError = tuf::readWholeFile(os::realFileSystem(), tRootPath, sMaxRoot, &tRoot)) {
        complain(tError.mText);
        return StatusFailed;
    }
    int tPackageCount = 0;
    const QStringList tProblems = findProblems(tLine, tRoot, tOther.get(), &tPackageCount);
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
