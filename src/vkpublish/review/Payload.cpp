#include "review/Payload.h"

#include "record/Draft.h"

#include "tuf/CanonicalJson.h"
#include "tuf/Metadata.h"

#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// Of objects and arrays: more would need too much memory. The reader of metadata accepts fewer.
constexpr qsizetype sMaxContainers = 500'000;

Failure unusable(const QString& pWhy)
{
    return Failure::content(u"This is no root and no list of packages to be signed: "_s + pWhy);
}

// As machines check it.
Failure check(const Payload& pPayload)
{
    const QByteArray tFile = unsignedFile(pPayload.mBytes);
    if (pPayload.mRole == tuf::sRoot) {
        tuf::Root tRoot;
        return tuf::parseRoot(tFile, &tRoot);
    }
    if (pPayload.mRole == tuf::sTargets) {
        tuf::Targets tTargets;
        return tuf::parseTargets(tFile, tuf::sTargets, &tTargets);
    }
    return unusable(u"its type is another one"_s);
}

} // namespace

Result<Payload> readPayload(const QByteArray& pFile)
{
    if (pFile.size() > sMaxPayloadFile || pFile.count('{') + pFile.count('[') > sMaxContainers) {
        return unusable(u"it is too large"_s);
    }
    const QJsonObject tObject = QJsonDocument::fromJson(pFile).object();
    Payload tPayload;
    tPayload.mSigned = tObject["signed"_L1].isObject() ? tObject["signed"_L1].toObject() : tObject;
    tPayload.mRole = tPayload.mSigned["_type"_L1].toString();
    tPayload.mVersion = tPayload.mSigned["version"_L1].toInteger();
    if (tPayload.mSigned.isEmpty() || !tuf::canonicalJson(tPayload.mSigned, &tPayload.mBytes)) {
        return unusable(u"the file is damaged"_s);
    }
    if (Failure tFailure = check(tPayload)) {
        return tFailure;
    }
    return tPayload;
}

Result<Payload> readBytesToSign(const QByteArray& pFile)
{
    Result<Payload> tPayload = readPayload(pFile);
    // What is shown and what is signed must be the same.
    if (tPayload && tPayload->mBytes != pFile) {
        return unusable(u"these are not the exact bytes that \"vkpublish payload\" writes"_s);
    }
    return tPayload;
}

} // namespace tarn::vkpublish
