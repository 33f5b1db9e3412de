#include "review/SignedBefore.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0600;

QString memoryPath(const OfflineKey& pKey, const QString& pRole)
{
    return u"%1/%2.%3.signed"_s.arg(pKey.mFolder, pKey.mName, pRole);
}

} // namespace

Result<std::optional<Payload>> signedBefore(os::FileSystem& pFileSystem, const QList<OfflineKey>& pKeys,
                                            const QString& pRole)
{
    std::optional<Payload> tOldest;
    for (const OfflineKey& tKey : pKeys) {
        const QString tPath = memoryPath(tKey, pRole);
        const Result<QByteArray> tFile = os::readFile(pFileSystem, tPath, sMaxPayloadFile);
        if (!tFile && tFile.failure().mKind == Failure::Kind::NotFound) {
            return std::optional<Payload>();
        }
        if (!tFile) {
            return tFile.failure();
        }
        const Result<Payload> tPayload = readBytesToSign(*tFile);
        if (!tPayload || tPayload->mRole != pRole) {
            return Failure::content(
                u"%1 is damaged. Remove it to compare with nothing, and check everything"_s.arg(tPath));
        }
        if (!tOldest || tPayload->mVersion < tOldest->mVersion) {
            tOldest = *tPayload;
        }
    }
    return tOldest;
}

Failure rememberSigned(os::FileSystem& pFileSystem, const QList<OfflineKey>& pKeys, const Payload& pPayload)
{
    for (const OfflineKey& tKey : pKeys) {
        if (Failure tFailure =
                os::replaceFile(pFileSystem, memoryPath(tKey, pPayload.mRole), pPayload.mBytes, sFileMode)) {
            return tFailure;
        }
    }
    return {};
}

} // namespace tarn::vkpublish
