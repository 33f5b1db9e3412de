#pragma once

#include <QtCore/QDateTime>

namespace tarn::vkpublish {

// The time that is signed as now: that of the clock, or that of the environment's SOURCE_DATE_EPOCH, in
// seconds since 1970, so that the same input makes the same repository. Whether something has expired is
// always compared with the clock.
QDateTime signingTime();

} // namespace tarn::vkpublish
