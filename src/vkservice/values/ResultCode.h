#pragma once

#include <QtCore/QLatin1StringView>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::vkservice {

// The outcome of a run; clients get the low 8 bits.
enum ResultCode : int
{
    ResultNone = 0,
    ResultSuccess = 1,
    ResultUnreachable = 2,
    ResultVerificationFailed = 3,
    ResultAborted = 4,
    ResultSuppressed = 5,
    ResultNoSpace = 6,
    ResultInstallFailed = 7,
    ResultNoServer = 8,
    ResultManualIntervention = 9,
    ResultStoreDamaged = 10,
    ResultCheckFailed = 11,
};

// The code as a text for users.
QString resultText(ResultCode pCode);

struct ResultWord
{
    ResultCode mCode;
    QLatin1StringView mWord; // for programs
};
// All that a run can end with.
const QList<ResultWord>& resultWords();

} // namespace tarn::vkservice
