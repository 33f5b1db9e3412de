#pragma once

#include "keys/Secret.h"

#include "internal/Failure.h"

#include <QtCore/QString>

#include <deque>
#include <functional>
#include <string_view>
#include <vector>

namespace tarn::vkpublish {

// Something that a passphrase opens.
struct Locked
{
    QString mName;                               // for messages
    std::function<bool(std::string_view)> mOpen; // false: it is another passphrase. Called on any thread
};

// The passphrases of one run. The first one comes from the file that VKPUBLISH_PASSPHRASE_FILE names, from
// the systemd credential vkpublish-passphrase, or from the terminal, when a key needs it; none is asked for
// twice.
class Passphrases
{
public:
    // pWhat: what they open, for the prompt.
    explicit Passphrases(const QString& pWhat);

    // Opens all of these, as many at the same time as there are processors: each takes a while.
    Failure unlock(std::vector<Locked> pLocked);

    // For a new key: the first one of this run. It lives as long as this object.
    Result<const Secret*> forNew();
    // Whether something was opened, or a new one was given.
    bool isKnown() const { return !mKnown.empty(); }

private:
    // From a file or a credential; null if there is neither.
    Result<const Secret*> given();
    Result<const Secret*> ask(const QString& pName);
    Result<const Secret*> keep(Result<Secret> pSecret);

    QString mWhat;
    std::deque<Secret> mKnown;
    bool mIsGiven = false; // the first one is from a file or credential, so nobody can be asked
};

} // namespace tarn::vkpublish
