#include "Arguments.h"

#include "CommandTable.h"

#include <QtCore/QCommandLineParser>

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

namespace {

void addOptions(QCommandLineParser* pParser)
{
    for (const Option& tOption : options()) {
        const QStringList tNames =
            tOption.mName == "help"_L1 ? QStringList{u"h"_s, tOption.mName} : QStringList{tOption.mName};
        pParser->addOption({tNames, {}, tOption.mValue});
    }
}

// Names an option without its value, or one that is unknown.
QString faultOf(const QCommandLineParser& pParser)
{
    const QStringList tUnknown = pParser.unknownOptionNames();
    if (!tUnknown.isEmpty()) {
        return Arguments::tr("Unknown option: '%1'").arg(tUnknown.first());
    }
    for (const Option& tOption : options()) {
        if (!tOption.mValue.isEmpty() && pParser.isSet(tOption.mName) &&
            pParser.values(tOption.mName).last().isEmpty()) {
            return Arguments::tr("Option '%1' requires an argument").arg(u"--"_s + tOption.mName);
        }
    }
    return pParser.errorText();
}

} // namespace

std::optional<Arguments> Arguments::parse(const QStringList& pWords, QString* pError)
{
    QCommandLineParser tParser;
    addOptions(&tParser);
    if (!tParser.parse(QStringList{u"vkctl"_s} + pWords)) {
        *pError = faultOf(tParser);
        return std::nullopt;
    }
    Arguments tArguments;
    tArguments.mIsVersion = tParser.isSet(u"version"_s);
    tArguments.mIsJson = tParser.isSet(u"json"_s);
    if (tParser.isSet(u"socket"_s)) {
        tArguments.mSocket = tParser.value(u"socket"_s);
    }
    tArguments.mOperands = tParser.positionalArguments();
    if (tArguments.mOperands.isEmpty()) {
        return tArguments;
    }
    const QString tName = tArguments.mOperands.takeFirst();
    const Command* tCommand = findCommand(tName);
    if (tCommand == nullptr) {
        *pError = tr("Unknown command: %1").arg(tName);
        return std::nullopt;
    }
    if (tArguments.mOperands.size() > tCommand->mMostOperands) {
        *pError = tr("Unhandled argument '%1'").arg(tArguments.mOperands[tCommand->mMostOperands]);
        return std::nullopt;
    }
    for (const Option& tOption : options()) {
        if (tOption.mIsCommon || !tParser.isSet(tOption.mName)) {
            continue;
        }
        if (!tCommand->mOptions.contains(tOption.mName)) {
            *pError = tr("Unknown option: '%1'").arg(tOption.mName);
            return std::nullopt;
        }
        tArguments.mValues.insert(tOption.mName, tParser.value(tOption.mName));
    }
    if (tParser.isSet(u"help"_s)) {
        return tArguments;
    }
    if (tArguments.mOperands.size() < tCommand->mLeastOperands) {
        *pError = tr("The command needs: %1").arg(QString::fromLatin1(tCommand->mOperands));
        return std::nullopt;
    }
    tArguments.mCommand = tCommand;
    return tArguments;
}

} // namespace tarn::vkctl
