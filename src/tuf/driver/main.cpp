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

using namespace Qt::StringLiterals;

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
        return Error{ErrorKind::Local, u"%1 can't be read: %2"_s.arg(pRootPath, tFile.errorString())};
    }
    return Updater::initialize(realFileSystem(), pMetadataDir, tFile.readAll());
}

Error download(Updater& pUpdater, HttpClient& pClient, const Arguments& pArguments)
{
    for (const QString& tName : pArguments.mTargetNames) {
        std::optional<TargetFile> tTarget;
        Error tError = pUpdater.findTarget(tName, &tTarget);
        if (!tError && !tTarget) {
            tError = Error{ErrorKind::NotFound, u"The repository has no target %1"_s.arg(tName)};
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
    const QString tUrl = u"URL"_s;
    const QString tDir = u"DIR"_s;
    pParser->setApplicationDescription(u"Drives the TUF client, for conformance tests."_s);
    pParser->addHelpOption();
    pParser->addOption({u"metadata-dir"_s, u"Trusted metadata of the client"_s, tDir});
    pParser->addOption({u"metadata-url"_s, u"Metadata of the repository"_s, tUrl});
    pParser->addOption({u"target-name"_s, u"What to download; may be repeated"_s, u"NAME"_s});
    pParser->addOption({u"target-base-url"_s, u"Targets of the repository"_s, tUrl});
    pParser->addOption({u"target-dir"_s, u"Where to put downloads"_s, tDir});
    pParser->addPositionalArgument(u"COMMAND"_s, u"init ROOT, refresh or download"_s);
}

} // namespace

int main(int pArgc, char** pArgv)
{
    const QCoreApplication tApplication(pArgc, pArgv);
    QCommandLineParser tParser;
    addOptions(&tParser);
    tParser.process(tApplication);
    const Arguments tArguments{tParser.value(u"metadata-dir"_s), tParser.value(u"metadata-url"_s),
                               tParser.values(u"target-name"_s), tParser.value(u"target-base-url"_s),
                               tParser.value(u"target-dir"_s)};
    const QStringList tWords = tParser.positionalArguments();
    const QString tCommand = tWords.value(0);

    Error tError;
    if (tArguments.mMetadataDir.isEmpty()) {
        tError = Error{ErrorKind::Local, u"--metadata-dir is missing"_s};
    } else if (tCommand == "init"_L1 && tWords.size() == 2) {
        tError = init(tArguments.mMetadataDir, tWords[1]);
    } else if ((tCommand == "refresh"_L1 || tCommand == "download"_L1) && tWords.size() == 1) {
        tError = update(tArguments, tCommand == "download"_L1);
    } else {
        tError = Error{ErrorKind::Local, u"The command is init ROOT, refresh or download"_s};
    }
    if (tError) {
        std::fputs(("vktuf: " + tError.mText.toLocal8Bit() + '\n').constData(), stderr);
    }
    return tError ? 1 : 0;
}
