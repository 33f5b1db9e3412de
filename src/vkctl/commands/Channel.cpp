#include "commands/Commands.h"
#include "CtlApplication.h"

#include "internal/Methods.h"
#include "internal/PlainText.h"

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

using namespace vkcore::protocol;

int channel(CtlApplication& pApp)
{
    if (!pApp.connectToService()) {
        return StatusFailed;
    }
    const QString tWanted = pApp.arguments().mOperands.value(0);
    if (!tWanted.isNull() && !pApp.call(method::sSetChannel, toJson(Channel{tWanted}))) {
        return pApp.fail(CtlApplication::tr("The channel can't be set: %1").arg(pApp.reason()));
    }
    const auto tChannel = pApp.call(method::sGetChannel);
    if (!tChannel) {
        return pApp.fail(CtlApplication::tr("Failed to get the channel."));
    }
    if (pApp.arguments().mIsJson) {
        pApp.printJson({{u"channel"_s, *tChannel}});
    } else {
        pApp.print(CtlApplication::tr("Channel: %1").arg(vkcore::singleLine(tChannel->toString())));
    }
    return StatusSound;
}

} // namespace tarn::vkctl
