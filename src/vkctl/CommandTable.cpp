#include "CommandTable.h"

#include "commands/Commands.h"

#include <QtCore/QStringList>

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

namespace {

struct Text
{
    Q_DECLARE_TR_FUNCTIONS(tarn::vkctl::CommandTable)
};

constexpr qsizetype sColumn = 16;

QString row(const QString& pLeft, const char* pSummary)
{
    const QString tSummary = Text::tr(pSummary);
    return pLeft.size() < sColumn ? u"  %1%2"_s.arg(pLeft.leftJustified(sColumn), tSummary)
                                  : u"  %1\n  %2%3"_s.arg(pLeft, QString(sColumn, u' '), tSummary);
}

QString commandText(const Command& pCommand)
{
    const QString tOperands = QString::fromLatin1(pCommand.mOperands);
    return tOperands.isEmpty() ? QString(pCommand.mName) : pCommand.mName + u' ' + tOperands;
}

QString optionText(const Option& pOption)
{
    const QString tName = (pOption.mName == "help"_L1 ? u"-h, --"_s : u"--"_s) + pOption.mName;
    return pOption.mValue.isEmpty() ? tName : tName + u'=' + pOption.mValue;
}

} // namespace

const QList<Command>& commands()
{
    static const QList<Command> sCommands{
        {.mName = "status"_L1,
         .mOperands = "",
         .mSummary =
             QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable",
                               "Show the last and the next update, and what is known about the files"),
         .mRun = &status},
        {.mName = "packages"_L1,
         .mOperands = "",
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "List the installed packages"),
         .mRun = &packages},
        {.mName = "history"_L1,
         .mOperands = "",
         .mSummary =
             QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "List the installed updates, newest first"),
         .mRun = &history},
        {.mName = "verify"_L1,
         .mOperands = "",
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable",
                                       "Compare all installed files with what was published"),
         .mRun = &verify},
        {.mName = "repair"_L1,
         .mOperands = "",
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "Install damaged packages again"),
         .mRun = &repair},
        {.mName = "hold"_L1,
         .mOperands = "NAME [VERSION-PREFIX]",
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable",
                                       "Keep a package as it is, or within the versions that begin so"),
         .mLeastOperands = 1,
         .mMostOperands = 2,
         .mOptions = {"until"_L1},
         .mRun = &hold},
        {.mName = "unhold"_L1,
         .mOperands = "NAME",
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "End the hold of a package"),
         .mLeastOperands = 1,
         .mMostOperands = 1,
         .mRun = &unhold},
        {.mName = "holds"_L1,
         .mOperands = "",
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "Show the held packages"),
         .mRun = &holds},
        {.mName = "channel"_L1,
         .mOperands = "[NAME]",
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable",
                                       "Show or choose the channel; \"stable\" is the usual one"),
         .mMostOperands = 1,
         .mRun = &channel},
        {.mName = "generations"_L1,
         .mOperands = "",
         .mSummary =
             QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "Show the states of the packages that are kept"),
         .mRun = &generations},
        {.mName = "rollback"_L1,
         .mOperands = "[GENERATION]",
         .mSummary =
             QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "Go back to an earlier state of the packages"),
         .mMostOperands = 1,
         .mRun = &rollBack},
        {.mName = "refused"_L1,
         .mOperands = "",
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable",
                                       "Show the packages that failed and are not installed again"),
         .mRun = &refused},
        {.mName = "accept"_L1,
         .mOperands = "PACKAGE",
         .mSummary =
             QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "Let a refused package be installed again"),
         .mLeastOperands = 1,
         .mMostOperands = 1,
         .mRun = &accept},
    };
    return sCommands;
}

const QList<Option>& options()
{
    static const QList<Option> sOptions{
        {"json"_L1, {}, QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "Print one JSON object")},
        {"socket"_L1, "NAME"_L1,
         QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "Use the service that listens on this socket")},
        {.mName = "until"_L1,
         .mValue = "DATE"_L1,
         .mSummary =
             QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "With \"hold\": end the hold at this date"),
         .mIsCommon = false},
        {"help"_L1, {}, QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "Show this help")},
        {"version"_L1, {}, QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "Show the version")},
    };
    return sOptions;
}

const Command* findCommand(const QString& pName)
{
    for (const Command& tCommand : commands()) {
        if (tCommand.mName == pName) {
            return &tCommand;
        }
    }
    return nullptr;
}

QString usage()
{
    QStringList tLines{Text::tr("USAGE: vkctl <command> [options]"), {}, Text::tr("Commands:")};
    for (const Command& tCommand : commands()) {
        tLines.append(row(commandText(tCommand), tCommand.mSummary));
    }
    tLines += {{}, Text::tr("Options:")};
    for (const Option& tOption : options()) {
        tLines.append(row(optionText(tOption), tOption.mSummary));
    }
    return tLines.join(u'\n');
}

} // namespace tarn::vkctl
