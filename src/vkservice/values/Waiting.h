#pragma once

#include <QtCore/QDateTime>

namespace tarn::vkservice {

// A scheduled update that could not go on yet.
struct Waiting
{
    QDateTime mSince;         // invalid: nothing waits
    bool mIsReported = false; // that it waits too long

    bool operator==(const Waiting&) const = default;
};

} // namespace tarn::vkservice
