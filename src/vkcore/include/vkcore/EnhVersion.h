#pragma once

#include <vkcore/Export.h>
#include <vkcore/Version.h>

#include <QtCore/QDateTime>

#include <compare>

namespace tarn::vkcore {

// A version with its date, which distinguishes packages with the same version number.
class VKCORE_EXPORT EnhVersion
{
public:
    EnhVersion() = default;
    EnhVersion(const Version& pVersion, const QDateTime& pDate);

    const Version& version() const { return mVersion; }
    const QDateTime& date() const { return mDate; }

    // "1.2.3 (2024-03-07)"; only the version if the date is not valid.
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
