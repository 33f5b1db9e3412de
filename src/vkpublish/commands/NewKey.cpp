#include "commands/NewKey.h"

#include "keys/Roles.h"
#include "keys/RootDocument.h"

namespace tarn::vkpublish {

Result<KeyFile> newKey(const KeyOrder& pOrder, const KeyFolder& pKeys)
{
    const Result<RootDocument> tRoot = RootDocument::read(pKeys.mRecord.mRoot);
    if (!tRoot) {
        return tRoot.failure();
    }
    for (const QString& tRole : roleNames()) {
        if (const Result<QList<Signer>> tOld = pKeys.readSigners(tRoot->keyIds(tRole)); !tOld) {
            return tOld.failure();
        }
    }
    return makeKey(pOrder, &pKeys.passphrases());
}

} // namespace tarn::vkpublish
