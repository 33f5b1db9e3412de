// Drives the TUF client from the command line, as conformance tests expect it. Not for use on a real machine:
// it also speaks plain http.
#include "Download.h"
#include "HttpClient.h"

#include "os/FileSystem.h"
#include "tuf/Updater.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

#include <cstdio>

namespace {

using namespace tarn::tuf;
using tarn::os::realFileSystem;

class UrlFetcher : public Fetcher
{
public:
    UrlFetcher(HttpClient& pClient, const QString& pBaseUrl) : mClient(pClient), mBaseUrl(pBaseUrl) {}

    Error fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override
    {
        return mClient.get(joinUrl(mBaseUrl, pPath), pMaxLength, [pTo](QByteArrayView pPiece) {
            pTo->append(pPiece);
            return true;
        });
    }

private:
    HttpClient& mClient;
    QString mBaseUrl;
};

struct Arguments
{
    QString mMetadataDir;
    QString mMetadataUrl;
    QStringList mTargetNames;
    QString mTargetBaseUrl;
    QString mTargetDir;
};

Error init(const QString& pMetadataDir, const QString& pRootPath)
{
    QFile tFile(pRootPath);
    if (!tFile.open(QIODevice::ReadOnly)) {
        return Error{ErrorKind::Local,
                     QStringLiteral("%1 can't be read: %2").arg(pRootPath, tFile.errorString())};
    }
    return Updater::initialize(realFileSystem(), pMetadataDir, tFile.readAll());
}

Error download(Updater& pUpdater, HttpClient& pClient, const Arguments& pArguments)
{
    for (const QString& tName : pArguments.mTargetNames) {
        std::optional<TargetFile> tTarget;
        Error tError = pUpdater.findTarget(tName, &tTarget);
        if (!tError && !tTarget) {
            tError = Error{ErrorKind::NotFound, QStringLiteral("The repository has no target %1").arg(tName)};
        }
        if (!tError) {
            tError = downloadTarget(pClient, pArguments.mTargetBaseUrl, *tTarget, pArguments.mTargetDir);
        }
        if (tError) {
            return tError;
        }
    }
    return Error();
}

Error update(const Arguments& pArguments, bool pDownload)
{
    HttpClient tClient;
    UrlFetcher tFetcher(tClient, pArguments.mMetadataUrl);
    Updater tUpdater(realFileSystem(), pArguments.mMetadataDir, tFetcher, QDateTime::currentDateTimeUtc());
    const Error tError = tUpdater.refresh();
    return tError || !pDownload ? tError : download(tUpdater, tClient, pArguments);
}

void addOptions(QCommandLineParser* pParser)
{
    const QString tUrl = QStringLiteral("URL");
    const QString tDir = QStringLiteral("DIR");
    pParser->setApplicationDescription(QStringLiteral("Drives the TUF client, for conformance tests."));
    pParser->addHelpOption();
    pParser->addOption(
        {QStringLiteral("metadata-dir"), QStringLiteral("Trusted metadata of the client"), tDir});
    pParser->addOption({QStringLiteral("metadata-url"), QStringLiteral("Metadata of the repository"), tUrl});
    pParser->addOption({QStringLiteral("target-name"), QStringLiteral("What to download; may be repeated"),
                        QStringLiteral("NAME")});
    pParser->addOption(
        {QStringLiteral("target-base-url"), QStringLiteral("Targets of the repository"), tUrl});
    pParser->addOption({QStringLiteral("target-dir"), QStringLiteral("Where to put downloads"), tDir});
    pParser->addPositionalArgument(QStringLiteral("COMMAND"),
                                   QStringLiteral("init ROOT, refresh or download"));
}

} // namespace

int main(int pArgc, char** pArgv)
{
    const QCoreApplication tApplication(pArgc, pArgv);
    QCommandLineParser tParser;
    addOptions(&tParser);
    tParser.process(tApplication);
    const Arguments tArguments{
        tParser.value(QStringLiteral("metadata-dir")), tParser.value(QStringLiteral("metadata-url")),
        tParser.values(QStringLiteral("target-name")), tParser.value(QStringLiteral("target-base-url")),
        tParser.value(QStringLiteral("target-dir"))};
    const QStringList tWords = tParser.positionalArguments();
    const QString tCommand = tWords.value(0);

    Error tError;
    if (tArguments.mMetadataDir.isEmpty()) {
        tError = Error{ErrorKind::Local, QStringLiteral("--metadata-dir is missing")};
    } else if (tCommand == QLatin1String("init") && tWords.size() == 2) {
        tError = init(tArguments.mMetadataDir, tWords[1]);
    } else if ((tCommand == QLatin1String("refresh") || tCommand == QLatin1String("download")) &&
               tWords.size() == 1) {
        tError = update(tArguments, tCommand == QLatin1String("download"));
    } else {
        tError = Error{ErrorKind::Local, QStringLiteral("The command is init ROOT, refresh or download")};
    }
    if (tError) {
        std::fputs(("vktuf: " + tError.mText.toLocal8Bit() + '\n').constData(), stderr);
    }
    return tError ? 1 : 0;
}
