#include "commands/OfflineKeys.h"

#include "CommandLine.h"
#include "review/Review.h"

#include "os/FileSystem.h"

#include <QtCore/QDir>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

void addOfflineKeys(CommandLine* pLine)
{
    pLine->addOption(u"key"_s, u"A private key; may be repeated"_s, u"FILE"_s);
    pLine->addOption(u"keys"_s, u"A folder: all its keys whose files begin with the role"_s, u"FOLDER"_s);
}

Result<QList<OfflineKey>> offlineKeys(const CommandLine& pLine, const QString& pRole)
{
    QList<OfflineKey> tKeys;
    for (const QString& tFile : pLine.values("key")) {
        const QFileInfo tInfo(tFile);
        if (!tInfo.isFile()) {
            return Failure::content(u"The key %1 does not exist"_s.arg(tFile));
        }
        tKeys.append({tInfo.absolutePath(), tInfo.fileName()});
    }
    if (pLine.isSet("keys")) {
        const QDir tFolder(pLine.value("keys"));
        for (const QString& tName :
             tFolder.entryList({pRole + "-*.pem"_L1, pRole + "-*.signer"_L1}, QDir::Files, QDir::Name)) {
            tKeys.append({tFolder.absolutePath(), tName});
        }
        if (tKeys.isEmpty()) {
            return Failure::content(u"%1 has no key whose file begins with \"%2-\": name it with --key"_s.arg(
                tFolder.path(), pRole));
        }
    }
    return tKeys;
}

Result<QStringList> reviewOffline(const CommandLine& pLine, const Payload& pPayload, QList<OfflineKey>* pKeys)
{
    const Result<QList<OfflineKey>> tKeys = offlineKeys(pLine, pPayload.mRole);
    if (!tKeys) {
        return tKeys.failure();
    }
    const auto tBefore = signedBefore(os::realFileSystem(), *tKeys, pPayload.mRole);
    if (!tBefore) {
        return tBefore.failure();
    }
    *pKeys = *tKeys;
    return review(pPayload, *tBefore, u"which was signed here"_s);
}

} // namespace tarn::vkpublish
