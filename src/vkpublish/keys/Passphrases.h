#pragma once

#include "keys/Secret.h"

#include "internal/Failure.h"

#include <QtCore/QString>

#include <deque>
#include <functional>

namespace tarn::vkpublish {

// The passphrases of one run. The first one comes from the file that VKPUBLISH_PASSPHRASE_FILE names, from
// the systemd credential vkpublish-passphrase, or from the terminal, when a key needs it; none is asked for
// twice.
class Passphrases
{
public:
    // pWhat: what they open, for the prompt.
    explicit Passphrases(const QString& pWhat);

    // Calls pOpen until it returns true for a passphrase. pName: what it opens, for messages.
    Failure unlock(const QString& pName, const std::function<bool(std::string_view)>& pOpen);

    // For a new key: the first one of this run. It lives as long as this object.
    Result<const Secret*> forNew();

private:
    // From a file or a credential; null if there is neither.
    Result<const Secret*> given();
    Result<const Secret*> keep(Result<Secret> pSecret);

    QString mWhat;
    std::deque<Secret> mKnown;
    bool mIsGiven = false; // the first one is from a file or credential, so nobody can be asked
};

} // namespace tarn::vkpublish
