#include "publication/RoleSigners.h"

#include "keys/KeyFolder.h"
#include "keys/SignatureNeeds.h"
#include "publication/Drafts.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

Result<QList<Signer>> signersOf(const KeyFolder& pKeys, const QString& pRole, const SignatureNeeds& pNeeds)
{
    const Result<QList<Signer>> tKeys = pKeys.readSigners(pNeeds.keyIds());
    const Result<QList<Signer>> tRetiring = pKeys.readRetiringKeys(pRole);
    if (!tKeys || !tRetiring) {
        return tKeys ? tRetiring.failure() : tKeys.failure();
    }
    return *tKeys + *tRetiring;
}

} // namespace

Result<RoleSigners> readSigners(const KeyFolder& pKeys, const QStringList& pRoles, const QDateTime& pNow)
{
    QMap<QString, SignatureNeeds> tNeeds;
    QStringList tIds;
    for (const QString& tRole : pRoles) {
        const auto tNeed = tNeeds.insert(tRole, SignatureNeeds::of(pKeys, tRole, pNow));
        if (const int tMissing = tNeed->missing(tuf::Signed(), pKeys.here(tNeed->keyIds()))) {
            return Failure{Failure::Kind::Person,
                           u"The %1 metadata can't be signed, and %2: keys are not in %3"_s.arg(
                               tRole, missingText(tMissing), pKeys.path())};
        }
        tIds += tNeed->keyIds();
    }
    // Only now: to open a key may take a person's time. All at once: each takes a while.
    if (const Result<QList<Signer>> tAll = pKeys.readSigners(tIds); !tAll) {
        return tAll.failure();
    }
    RoleSigners tSigners;
    for (auto tIt = tNeeds.begin(); tIt != tNeeds.end(); ++tIt) {
        const Result<QList<Signer>> tOfRole = signersOf(pKeys, tIt.key(), *tIt);
        if (!tOfRole) {
            return tOfRole.failure();
        }
        tSigners.insert(tIt.key(), *tOfRole);
    }
    return tSigners;
}

} // namespace tarn::vkpublish
