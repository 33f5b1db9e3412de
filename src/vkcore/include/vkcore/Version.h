#pragma once

#include <vkcore/Export.h>

#include <QtCore/QString>

#include <compare>

namespace tarn::vkcore {

// Four numbers, compared from the left.
class VKCORE_EXPORT Version
{
public:
    constexpr Version() = default;
    constexpr Version(int pMajor, int pMinor, int pPatch, int pBuild)
        : mMajor(pMajor), mMinor(pMinor), mPatch(pPatch), mBuild(pBuild)
    {
    }

    // Reads one to four numbers joined by dots, each 0 to 2147483647; missing ones are 0. Anything else sets
    // *pOk to false and returns 0.0.0.0. pOk may be null.
    static Version fromString(const QString& pText, bool* pOk = nullptr);

    // "1.2.3.4": always all four numbers; the form of logs and files.
    QString toString() const;
    // "1.2.3": as above without a last number of 0; the form shown to people.
    QString toTarnAppFormat() const;

    auto operator<=>(const Version&) const = default;

private:
    int mMajor = 0;
    int mMinor = 0;
    int mPatch = 0;
    int mBuild = 0;
};

inline constexpr Version sNotInstalledVersion(-32767, 0, 0, 0);

} // namespace tarn::vkcore
