#pragma once

#include <vkcore/Version.h>

#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QString>

#include <optional>

namespace tarn::vkcore {
class JsonReader;
}

namespace tarn::packages {

// A package that its publisher spreads over some days. Each machine has a place among all machines for each
// publication, so packages that were published together arrive together.
struct Phase
{
    static constexpr qint64 sMostSeconds = qint64(365) * 24 * 60 * 60;

    QString mPublication; // [A-Za-z0-9._-]+, at most 64 characters
    QDateTime mBegins;
    qint64 mSeconds = 1; // 1 to sMostSeconds

    QDateTime ends() const { return mBegins.addSecs(mSeconds); }
    bool operator==(const Phase&) const = default;
};

// For which machines a package is, and when; part of the publisher's description.
struct Release
{
    QString mChannel;         // isChannel; empty: stable
    bool mIsCritical = false; // waits for no phase
    // The first version that has the last security fix: older ones have the flaw. None: it fixes no flaw.
    std::optional<vkcore::Version> mSecuritySince;
    std::optional<QDateTime> mHalted; // since when the publisher wants no further machine to install it
    std::optional<Phase> mPhase;

    // A version of the service that knows nothing of channels and halts must not install such a package.
    bool isRestricted() const { return !mChannel.isEmpty() || mHalted; }
    bool isFixFor(const vkcore::Version& pInstalled) const
    {
        return mSecuritySince && pInstalled < *mSecuritySince;
    }
    bool operator==(const Release&) const = default;
};

// [a-z0-9][a-z0-9._-]*, at most 32 characters, and not "stable".
bool isChannel(const QString& pText);

// The members of the description. Nothing is written for the defaults.
void write(const Release& pRelease, QJsonObject* pTo);
Release readRelease(vkcore::JsonReader* pReader);

} // namespace tarn::packages
