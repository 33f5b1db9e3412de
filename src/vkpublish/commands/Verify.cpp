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

namespace tarn::vkpublish {

namespace {

constexpr qint64 sMaxRoot = 512 * 1024;

void declare(CommandLine* pLine)
{
    pLine->addRepository();
    pLine->addOption(QStringLiteral("root"),
                     QStringLiteral("The root to start from, which you trust; by default the repository's "
                                    "first, if the key folder knows it"),
                     QStringLiteral("FILE"));
    pLine->addOption(QStringLiteral("against"),
                     QStringLiteral("Compare the versions with those of the repository in that folder or at "
                                    "that https address"),
                     QStringLiteral("PLACE"));
    pLine->addOption(QStringLiteral("ca-file"), QStringLiteral("The authorities to trust for that address"),
                     QStringLiteral("FILE"));
}

// Somebody knows that this is the root of the right repository: whoever named it, or the key folder.
bool hasVoucher(const CommandLine& pLine)
{
    return pLine.isSet("root") || pLine.isSet("keys") ||
           QFileInfo::exists(pLine.keys() + QLatin1String("/record.json"));
}

// Whether the roots lead to the one in the key folder's record.
bool isOfTheKeys(const CommandLine& pLine, const QList<QByteArray>& pRoots, QString* pError)
{
    KeyFolder tKeys(os::realFileSystem(), pLine.keys());
    if (!tKeys.openForReading(pError)) {
        return false;
    }
    if (!pRoots.contains(tKeys.mRecord.mRoot)) {
        *pError =
            QStringLiteral("The roots do not lead to the one that the record in %1 has: this is another "
                           "repository, or a rotate-key was cut off, and \"vkpublish publish\" makes it "
                           "good")
                .arg(tKeys.path());
    }
    return pError->isEmpty();
}

QString compare(qint64 pHere, qint64 pThere)
{
    return pHere < pThere   ? QStringLiteral("behind")
           : pHere > pThere ? QStringLiteral("ahead")
                            : QStringLiteral("the same");
}

// Writes the versions of both. False, with a reason, if machines that know the other one refuse this one.
bool isUpToDate(const RepositoryState& pHere, const RepositoryState& pThere, const QString& pPlace,
                QString* pError)
{
    for (auto tIt = pThere.mVersions.begin(); tIt != pThere.mVersions.end(); ++tIt) {
        const qint64 tHere = pHere.mVersions.value(tIt.key());
        say(QStringLiteral("%1: version %2 here, %3 there: %4")
                .arg(tIt.key())
                .arg(tHere)
                .arg(tIt.value())
                .arg(compare(tHere, tIt.value())));
        if (tHere < tIt.value()) {
            *pError =
                QStringLiteral("The repository is behind %1, and machines that know that one refuse it: "
                               "publish with --above %1")
                    .arg(pPlace);
        }
    }
    const qsizetype tRoots = std::min(pHere.mNewRoots.size(), pThere.mNewRoots.size());
    if (pHere.mNewRoots.first(tRoots) != pThere.mNewRoots.first(tRoots)) {
        *pError = QStringLiteral("The roots are others than those at %1, and machines that know these refuse "
                                 "the repository: a key was replaced twice, from the same backup")
                      .arg(pPlace);
    } else if (pError->isEmpty() && pHere.mVersions[tuf::sTimestamp] == pThere.mVersions[tuf::sTimestamp] &&
               pHere.mTimestamp != pThere.mTimestamp) {
        *pError = QStringLiteral("The timestamp has the same version at %1, but another content: machines "
                                 "keep the one that they saw first. Publish with --above %1")
                      .arg(pPlace);
    }
    return pError->isEmpty();
}

bool compareWith(tuf::Fetcher& pOther, const CommandLine& pLine, const QByteArray& pRoot, QString* pError)
{
    FolderFetcher tFolder(os::realFileSystem(), metadataFolder(pLine.repository()));
    RepositoryState tHere;
    RepositoryState tThere;
    tuf::Error tError = readState(tFolder, pRoot, &tHere);
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
        say(QStringLiteral("Not referred to: %1").arg(vkcore::singleLine(tPath, vkcore::sMaxMessage)));
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
    CommandLine tLine(
        QStringLiteral("verify"),
        QStringLiteral("Checks a repository, or a copy of it, as a client would, and the hash of every "
                       "package. Needs no keys, but a root that you trust."));
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
    if (const tuf::Error tError = tuf::readWholeFile(os::realFileSystem(), tRootPath, sMaxRoot, &tRoot)) {
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
        complain(
            QStringLiteral("The repository is whole: %1 packages. But nothing vouches for its root, which "
                           "a stranger could have made: name one that you trust with --root")
                .arg(tPackageCount));
        return StatusUnvouched;
    }
    say(QStringLiteral("The repository is good: %1 packages").arg(tPackageCount));
    return StatusDone;
}

} // namespace tarn::vkpublish
