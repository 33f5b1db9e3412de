#include "commands/NewKey.h"

#include "keys/Roles.h"
#include "keys/RootDocument.h"

namespace tarn::vkpublish {

namespace {

// Opens keys until one needed a passphrase.
Failure findPassphrase(const KeyFolder& pKeys)
{
    const Result<RootDocument> tRoot = RootDocument::read(pKeys.mRecord.mRoot);
    if (!tRoot) {
        return tRoot.failure();
    }
    for (const QString& tRole : roleNames()) {
        for (const QString& tId : tRoot->keyIds(tRole)) {
            if (pKeys.passphrases().isKnown()) {
                return {};
            }
            if (const Result<QList<Signer>> tOld = pKeys.readSigners({tId}); !tOld) {
                return tOld.failure();
            }
        }
    }
    return {};
}

} // namespace

Result<KeyFile> newKey(const KeyOrder& pOrder, const KeyFolder& pKeys)
{
    if (pOrder.mEncrypt && pOrder.mCommand.isEmpty()) {
        if (Failure tFailure = findPassphrase(pKeys)) {
            return tFailure;
        }
    }
    return makeKey(pOrder, &pKeys.passphrases());
}

} // namespace tarn::vkpublish
