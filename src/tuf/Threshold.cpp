#include "tuf/Threshold.h"

#include <QtCore/QSet>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

qsizetype countSigners(const Signed& pSigned, const RoleKeys& pRoleKeys, const KeyMap& pKeys)
{
    QSet<QByteArray> tSigners;
    for (const Signature& tSignature : pSigned.mSignatures) {
        const auto tKey = pKeys.constFind(tSignature.mKeyId);
        QByteArray tIdentity;
        if (tKey != pKeys.constEnd() && pRoleKeys.mKeyIds.contains(tSignature.mKeyId) &&
            tKey->verify(pSigned.mMessage, tSignature.mBytes, &tIdentity)) {
            tSigners.insert(tIdentity);
        }
    }
    return tSigners.size();
}

Failure verifyThreshold(const QString& pRole, const Signed& pSigned, const RoleKeys& pRoleKeys,
                        const KeyMap& pKeys)
{
    const qsizetype tSigners = countSigners(pSigned, pRoleKeys, pKeys);
    if (tSigners >= pRoleKeys.mThreshold) {
        return Failure();
    }
    return Failure{Failure::Kind::Untrusted,
                   u"The %1 metadata, version %2, has %3 of the %4 signatures that it needs"_s.arg(pRole)
                       .arg(pSigned.mVersion)
                       .arg(tSigners)
                       .arg(pRoleKeys.mThreshold)};
}

} // namespace tarn::tuf
