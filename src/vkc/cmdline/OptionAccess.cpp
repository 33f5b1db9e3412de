#include "vkc_Application.h"

#include "OptionIndex.h"

#include <optionparser.h>

namespace tarn::vkc {

bool VKCApplication::optIndexValid(unsigned long pOptIndex)
{
    if (mOptStats == nullptr || mOptions == nullptr) {
        logAssertFailed("mOptStats!= 0 && mOptions != 0", sSourcePath, __LINE__);
        return false;
    }
    if (pOptIndex >= mOptStats->options_max) {
        logAssertFailed("pOptIndex < mOptStats->options_max", sSourcePath, __LINE__);
        return false;
    }
    return true;
}

bool VKCApplication::optPassed(unsigned long pOptIndex)
{
    return optIndexValid(pOptIndex) && mOptions[pOptIndex];
}

bool VKCApplication::optEnabled(unsigned long pOptIndex, bool pDefault)
{
    if (!optPassed(pOptIndex)) {
        return pDefault;
    }
    return mOptions[pOptIndex].last()->type() == OptionEnables;
}

QString VKCApplication::optArg(unsigned long pOptIndex, const QString& pDefault)
{
    return optHasArg(pOptIndex) ? QString::fromLocal8Bit(mOptions[pOptIndex].last()->arg) : pDefault;
}

QList<QString> VKCApplication::optArgs(unsigned long pOptIndex)
{
    QList<QString> tArgs;
    if (!optPassed(pOptIndex)) {
        return tArgs;
    }
    for (const option::Option* tOption = &mOptions[pOptIndex]; tOption != nullptr;
         tOption = tOption->next()) {
        if (tOption->arg != nullptr) {
            tArgs.append(QString::fromLocal8Bit(tOption->arg));
        }
    }
    return tArgs;
}

bool VKCApplication::optHasArg(unsigned long pOptIndex)
{
    return optPassed(pOptIndex) && mOptions[pOptIndex].last()->arg != nullptr;
}

QString VKCApplication::optPassword(unsigned long pOptIndex, const QString& pPrompt)
{
    return optHasArg(pOptIndex) ? optArg(pOptIndex, QString()) : readPassword(pPrompt + u' ');
}

bool VKCApplication::noOwnOptions() const
{
    return mOptParser->optionsCount() == mBaseOptCount;
}

} // namespace tarn::vkc
