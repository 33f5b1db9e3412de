#pragma once

#include "ExitStatus.h"

#include "internal/PackageValues.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::vkctl {

// What the service knows about the installed files. All texts of others are plain in what is for people, and
// as they are in the JSON.
class Report
{
    Q_DECLARE_TR_FUNCTIONS(tarn::vkctl::Report)

public:
    Report(const vkcore::protocol::PackageEntries& pPackages,
           const vkcore::protocol::VerificationState& pVerification);

    // Damaged before unproven before sound; a package that was never checked is unproven.
    ExitStatus status() const;
    // Why the last verification did not come to its end; empty if it did.
    const QString& failure() const { return mVerification.mFailure; }
    bool hasDamage() const { return status() == StatusDamaged; }

    QString overview() const; // of all packages
    QString table() const;    // of all packages, with more about each
    QString summary() const;  // of a verification that has ended
    QString damage() const;   // the damaged packages with what is wrong; empty if there are none
    const QJsonObject& json() const { return mJson; }

private:
    QStringList names(QLatin1StringView pState) const;
    static QString stateText(const QString& pState);
    static QString problemText(const QString& pProblem);

    QJsonObject mJson;
    vkcore::protocol::PackageEntries mPackages; // plain, as what follows
    vkcore::protocol::VerificationState mVerification;
};

} // namespace tarn::vkctl
