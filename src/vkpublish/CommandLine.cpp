#include "CommandLine.h"

#include "network/MetadataSource.h"

#include "internal/PlainText.h"
#include "internal/StandardOutput.h"

#include <QtCore/QDir>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

void say(const QString& pLine)
{
    vkcore::writeOutput(vkcore::shownText(pLine).toLocal8Bit() + '\n');
}

void complain(const QString& pLine)
{
    // The text may quote an untrusted server or repository.
    const QString tLine = vkcore::singleLine(pLine, vkcore::sMaxMessage);
    vkcore::writeError("vkpublish: " + tLine.toLocal8Bit() + '\n');
}

CommandLine::CommandLine(const QString& pCommand, const QString& pDescription) : mCommand(pCommand)
{
    mParser.setApplicationDescription(pDescription);
    mParser.addOption(QCommandLineOption({u"h"_s, u"help"_s}, u"Shows this help."_s));
}

void CommandLine::addArgument(const QString& pName, const QString& pDescription)
{
    mParser.addPositionalArgument(pName, pDescription);
    mArguments.append(pName);
}

void CommandLine::addOptionalArgument(const QString& pName, const QString& pDescription)
{
    addArgument(u'[' + pName + u']', pDescription);
    ++mOptional;
}

void CommandLine::addOption(const QString& pName, const QString& pDescription, const QString& pValueName,
                            const QString& pDefault)
{
    mParser.addOption(QCommandLineOption(pName, pDescription, pValueName, pDefault));
}

void CommandLine::addRepository()
{
    addArgument(u"DIR"_s, u"Folder of the repository"_s);
    addOption(u"keys"_s, u"Folder of keys and record; by default DIR.keys"_s, u"FOLDER"_s);
}

void CommandLine::addNoWait()
{
    addOption(u"no-wait"_s, u"Fail at once if another vkpublish is using the keys or the repository"_s);
}

void CommandLine::addTrustClock()
{
    addOption(u"trust-clock"_s, u"Go on although the last publication was long ago, or later than now"_s);
}

void CommandLine::addJson()
{
    addOption(u"json"_s, u"Print one object of JSON, for programs"_s);
}

std::optional<int> CommandLine::parse(const QStringList& pArguments)
{
    if (!mParser.parse(QStringList{u"vkpublish"_s} + pArguments)) {
        complain(mParser.errorText());
        return StatusUsage;
    }
    if (mParser.isSet(u"help"_s)) {
        say(help());
        return StatusDone;
    }
    const qsizetype tMost = mArguments.size();
    const qsizetype tCount = mParser.positionalArguments().size();
    if (tCount > tMost || tCount < tMost - mOptional) {
        const QString tWanted =
            mOptional == 0 ? QString::number(tMost) : u"%1 to %2"_s.arg(tMost - mOptional).arg(tMost);
        complain(u"%1 takes %2 arguments, not %3; see \"vkpublish %1 --help\""_s.arg(mCommand, tWanted)
                     .arg(tCount));
        return StatusUsage;
    }
    return std::nullopt;
}

QString CommandLine::help() const
{
    // The parser does not support commands, and would use the program's path here.
    const QString tUsage =
        QStringList{u"Usage: vkpublish"_s, mCommand, mArguments.join(u' '), u"[options]"_s}.join(u' ');
    const QString tText = mParser.helpText().trimmed();
    return tUsage + tText.mid(tText.indexOf(u'\n'));
}

QString CommandLine::argument(int pIndex) const
{
    return mParser.positionalArguments().value(pIndex);
}
bool CommandLine::isSet(const char* pName) const
{
    return mParser.isSet(QLatin1String(pName));
}
QString CommandLine::value(const char* pName) const
{
    return mParser.value(QLatin1String(pName));
}
QStringList CommandLine::values(const char* pName) const
{
    return mParser.values(QLatin1String(pName));
}

QString CommandLine::repository() const
{
    return QDir::cleanPath(QDir::current().absoluteFilePath(argument(0)));
}

QString CommandLine::keys() const
{
    return isSet("keys") ? QDir::cleanPath(QDir::current().absoluteFilePath(value("keys")))
                         : repository() + ".keys"_L1;
}

Patience CommandLine::patience() const
{
    return isSet("no-wait") ? Patience::Refuse : Patience::Wait;
}

std::optional<int> CommandLine::number(const char* pName, int pLeast, int pMost) const
{
    bool tOk = false;
    const int tNumber = value(pName).toInt(&tOk);
    if (!tOk || tNumber < pLeast || tNumber > pMost) {
        complain(u"--%1 takes a number from %2 to %3, not \"%4\""_s.arg(QLatin1String(pName))
                     .arg(pLeast)
                     .arg(pMost)
                     .arg(value(pName)));
        return std::nullopt;
    }
    return tNumber;
}

std::optional<QDateTime> CommandLine::date(const char* pName) const
{
    const QDateTime tDate = QDateTime::fromString(value(pName), Qt::ISODate);
    if (!tDate.isValid()) {
        complain(u"--%1 takes a date such as 2026-03-31 or 2026-03-31T12:00:00Z, not \"%2\""_s.arg(
            QLatin1String(pName), value(pName)));
        return std::nullopt;
    }
    return tDate;
}

bool CommandLine::openPlace(const char* pName, std::unique_ptr<tuf::Fetcher>* pTo) const
{
    Result<std::unique_ptr<tuf::Fetcher>> tPlace = openMetadata(value(pName), value("ca-file"));
    if (!tPlace) {
        complain(u"--%1: %2"_s.arg(QLatin1String(pName), tPlace.failure().mText));
        return false;
    }
    *pTo = std::move(*tPlace);
    return true;
}

} // namespace tarn::vkpublish
