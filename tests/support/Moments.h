#pragma once

#include <QtCore/QtGlobal>

// What is cut off at every moment of its work is cut off at a sample of them: at the first, and then at each
// that is so much later. With RKM_EVERY_MOMENT=1 at all of them. The step is a prime, so that it does not
// keep pace with what repeats.
inline int momentStep()
{
#ifdef __SANITIZE_ADDRESS__
    constexpr int sSample = 17;
#else
    constexpr int sSample = 5;
#endif
    return qEnvironmentVariableIsSet("RKM_EVERY_MOMENT") ? 1 : sSample;
}
