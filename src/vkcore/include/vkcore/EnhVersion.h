#pragma once

#include <vkcore/Export.h>
#include <vkcore/Version.h>

#include <QtCore/QDateTime>

#include <compare>

namespace tarn::vkcore {

// A version with the date of its making: two packages of the same version number
// are told apart by it.
class VKCORE_EXPORT EnhVersion
{
public:
    EnhVersion() = default;
    EnhVersion(const Version& pVersion, const QDateTime& pDate);

    const Version& version() const { return mVersion; }
    const QDateTime& date() const { return mDate; }

    // "1.2.3 (2024-03-07)"; the version alone where the date is not valid.
    QString toString() const;

    // By version, then by date; an invalid date is older than any valid one.
    std::weak_ordering operator<=>(const EnhVersion& pOther) const;
    bool operator==(const EnhVersion& pOther) const;

private:
    Version mVersion;
    QDateTime mDate;
};

inline const EnhVersion sNotInstalledEnhVersion(sNotInstalledVersion,
                                                QDateTime(QDate(1900, 1, 1), QTime(0, 0)));

} // namespace tarn::vkcore
