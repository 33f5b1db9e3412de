// Drives the TUF client from the command line for conformance tests. Not for real machines: it also accepts
// plain http.
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
using tarn::Failure;
using tarn::os::realFileSystem;

class UrlFetcher : public Fetcher
{
public:
    UrlFetcher(HttpClient& pClient, const QString& pBaseUrl) : mClient(pClient), mBaseUrl(pBaseUrl) {}

    Failure fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override
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

Failure init(const QString& pMetadataDir, const QString& pRootPath)
{
    QFile tFile(pRootPath);
    if (!tFile.open(QIODevice::ReadOnly)) {
        return Failure{Failure::Kind::Damaged, u"%1 can't be read: %2"_s.arg(pRootPath, tFile.errorString())};
    }
    return Updater::initialize(realFileSystem(), pMetadataDir, tFile.readAll());
}

Failure download(Updater& pUpdater, HttpClient& pClient, const Arguments& pArguments)
{
    for (const QString& tName : pArguments.mTargetNames) {
        std::optional<TargetFile> tTarget;
        Failure tFailure = pUpdater.findTarget(tName, &tTarget);
        if (!tFailure && !tTarget) {
            tFailure = Failure{Failure::Kind::NotFound, u"The repository has no target %1"_s.arg(tName)};
        }
        if (!tFailure) {
            tFailure = downloadTarget(pClient, pArguments.mTargetBaseUrl, *tTarget, pArguments.mTargetDir);
        }
        if (tFailure) {
            return tFailure;
        }
    }
    return Failure();
}

Failure update(const Arguments& pArguments, bool pDownload)
{
    HttpClient tClient;
    UrlFetcher tFetcher(tClient, pArguments.mMetadataUrl);
    Updater tUpdater(realFileSystem(), pArguments.mMetadataDir, tFetcher, QDateTime::currentDateTimeUtc());
    const Failure tFailure = tUpdater.refresh();
    return tFailure || !pDownload ? tFailure : download(tUpdater, tClient, pArguments);
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

    Failure tFailure;
    if (tArguments.mMetadataDir.isEmpty()) {
        tFailure = Failure{Failure::Kind::Damaged, u"--metadata-dir is missing"_s};
    } else if (tCommand == "init"_L1 && tWords.size() == 2) {
        tFailure = init(tArguments.mMetadataDir, tWords[1]);
    } else if ((tCommand == "refresh"_L1 || tCommand == "download"_L1) && tWords.size() == 1) {
        tFailure = update(tArguments, tCommand == "download"_L1);
    } else {
        tFailure = Failure{Failure::Kind::Damaged, u"The command is init ROOT, refresh or download"_s};
    }
    if (tFailure) {
        std::fputs(("vktuf: " + tFailure.mText.toLocal8Bit() + '\n').constData(), stderr);
    }
    return tFailure ? 1 : 0;
}
