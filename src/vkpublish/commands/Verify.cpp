#include "commands/Commands.h"

#include "CommandLine.h"
#include "Layout.h"
#include "Verification.h"

#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"
#include "tuf/Metadata.h"

namespace tarn::vkpublish {

namespace {

constexpr qint64 sMaxRoot = 512 * 1024;

} // namespace

int cmdVerify(const QStringList& pArguments)
{
    CommandLine tLine(
        QStringLiteral("verify"),
        QStringLiteral("Checks a repository, or a copy of it, as a client would, and the hash of every "
                       "package. Needs no keys."));
    tLine.addArgument(QStringLiteral("DIR"), QStringLiteral("Folder of the repository"));
    tLine.addOption(QStringLiteral("root"),
                    QStringLiteral("The root to start from; by default the repository's first"),
                    QStringLiteral("FILE"));
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const QString tRootPath =
        tLine.isSet("root") ? tLine.value("root") : versionedPath(tLine.repository(), tuf::sRoot, 1);
    QByteArray tRoot;
    if (const tuf::Error tError =
            tuf::readWholeFile(vkservice::os::realFileSystem(), tRootPath, sMaxRoot, &tRoot)) {
        complain(tError.mText);
        return StatusFailed;
    }
    const VerificationResult tResult =
        verifyRepository(tLine.repository(), tRoot, QDateTime::currentDateTimeUtc());
    for (const QString& tPath : tResult.mUnused) {
        say(QStringLiteral("Not referred to: %1").arg(tPath));
    }
    for (const QString& tProblem : tResult.mProblems) {
        complain(tProblem);
    }
    if (!tResult.mProblems.isEmpty()) {
        return StatusFailed;
    }
    say(QStringLiteral("The repository is good: %1 packages").arg(tResult.mPackageCount));
    return StatusDone;
}

} // namespace tarn::vkpublish
