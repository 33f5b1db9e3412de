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
    // Of targets, snapshot or timestamp: by the root of the record and those that it replaced a while ago.
    static SignatureNeeds of(const KeyFolder& pKeys, const QString& pRole, const QDateTime& pNow);
    // Of a new root: by the one of the record, and by itself.
    static SignatureNeeds ofRoot(const KeyFolder& pKeys, const QByteArray& pNewRoot);
    // These and those of another root.
    void add(const QByteArray& pRoot);

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

    QString mRole;
    QList<Need> mNeeds;
};

} // namespace tarn::vkpublish
