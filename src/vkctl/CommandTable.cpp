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
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable",
                                       "Show the installed packages and what is known about their files"),
         .mRun = &status},
        {.mName = "verify"_L1,
         .mOperands = "",
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable",
                                       "Compare all installed files with what was published"),
         .mRun = &verify},
        {.mName = "repair"_L1,
         .mOperands = "",
         .mSummary = QT_TRANSLATE_NOOP("tarn::vkctl::CommandTable", "Install damaged packages again"),
         .mRun = &repair},
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
