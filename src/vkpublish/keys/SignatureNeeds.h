#pragma once

#include "tuf/Metadata.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

class KeyFolder;

// Which signatures a file needs: enough of each root that the machines which read it may have.
class SignatureNeeds
{
public:
    // Of targets, snapshot or timestamp: by the newest root and those that it has replaced. pNewRoot: the
    // newest, if it is not yet that of the record.
    static SignatureNeeds of(const KeyFolder& pKeys, const QString& pRole, const QDateTime& pNow,
                             const QByteArray& pNewRoot = {});
    // Of a new root: by the one of the record, and by itself.
    static SignatureNeeds ofRoot(const KeyFolder& pKeys, const QByteArray& pNewRoot);

    // All keys whose signature counts.
    QStringList keyIds() const;
    // Whether the key has made this signature.
    bool verifies(const QByteArray& pMessage, const tuf::Signature& pSignature) const;

    // How many signatures are missing at least, if the keys in pWilling will sign, too. More than there are
    // keys left if that can't be enough.
    int missing(const tuf::Signed& pSigned, const QStringList& pWilling) const;
    bool areMet(const tuf::Signed& pSigned) const { return missing(pSigned, {}) == 0; }

private:
    struct Need
    {
        tuf::RoleKeys mKeys;
        tuf::KeyMap mPublicKeys;
    };

    explicit SignatureNeeds(const QString& pRole) : mRole(pRole) {}
    void add(const QByteArray& pRoot);
    // As far as keys of this root that are gone allow it.
    void addReplaced(const QByteArray& pRoot, const KeyFolder& pKeys);
    QList<qint64> missingOfEach(const tuf::Signed& pSigned, const QStringList& pWilling) const;
    QString bestOf(const QStringList& pIds, const QList<qint64>& pMissing) const;

    QString mRole;
    QList<Need> mNeeds;
};

} // namespace tarn::vkpublish
