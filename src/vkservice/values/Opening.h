#pragma once

#include <QtCore/QDateTime>

namespace tarn::vkservice {

// A time in which scheduled runs may switch to new packages.
struct Opening
{
    QDateTime mFrom;
    QDateTime mUntil;

    bool isOpen(const QDateTime& pNow) const { return mFrom <= pNow && pNow < mUntil; }
    bool operator==(const Opening&) const = default;
};

} // namespace tarn::vkservice
