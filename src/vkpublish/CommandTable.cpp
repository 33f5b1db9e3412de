#include "CommandTable.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

QString linesOf(std::span<const Command> pCommands, int pWidth)
{
    QString tLines;
    for (const Command& tCommand : pCommands) {
        tLines +=
            u"  %1 %2\n"_s.arg(QLatin1String(tCommand.mName), -pWidth).arg(QLatin1String(tCommand.mSummary));
    }
    return tLines;
}

const Command* findCommand(std::span<const Command> pCommands, const QString& pName)
{
    const auto tIs = [&](const Command& pCommand) {
        return pName == QLatin1String(pCommand.mName).toString().section(u' ', 0, 0);
    };
    const auto tFound = std::find_if(pCommands.begin(), pCommands.end(), tIs);
    return tFound != pCommands.end() ? &*tFound : nullptr;
}

} // namespace tarn::vkpublish
