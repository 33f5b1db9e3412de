#include "process/ServiceApplication.h"

#include "internal/PlainText.h"
#include "process/Journal.h"

#include <vkcore/Config.h>

#include <unistd.h>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::process {

using namespace vkcore;

namespace {

constexpr int sKeptLogFiles = 4;

// One write per line, so that lines of other threads and processes in the same journal do not mix.
void toStandardError(const QString& pText)
{
    const QByteArray tLine = pText.toUtf8() + '\n';
    [[maybe_unused]] const ssize_t tWritten =
        ::write(STDERR_FILENO, tLine.constData(), static_cast<size_t>(tLine.size()));
}

QString levelName(LogLevel pLevel)
{
    switch (pLevel) {
    case LogLevel::Error:
        return u"ERROR: "_s;
    case LogLevel::Warning:
        return u"WARNING: "_s;
    case LogLevel::Notice:
    case LogLevel::Info:
        break;
    }
    return {};
}

} // namespace

ServiceApplication::ServiceApplication(bool pForeground)
    : OkiApplication({u"vk"_s, u"vkp"_s}, sKeptLogFiles), mForeground(pForeground),
      mHasJournal(!pForeground && leadsToJournal(STDERR_FILENO))
{
    setAppName(u"vkservice"_s);
    setLogDirName(u"vkc_log"_s);
}

void ServiceApplication::fatalError(const QString& pText)
{
    const QString tText = singleLine(pText, sMaxMessage);
    toStandardError(mForeground ? tText : u"<3>"_s + tText);
}

void ServiceApplication::initLogFile()
{
    if (mForeground) {
        OkiApplication::initLogFile();
    }
}

void ServiceApplication::note(LogLevel pLevel, const QString& pText, const JournalEvent& pEvent)
{
    if (mHasJournal) {
        write(pLevel, pText, pEvent);
    }
}

void ServiceApplication::write(LogLevel pLevel, const QString& pText, const JournalEvent& pEvent)
{
    const QString tText = singleLine(pText, sMaxMessage);
    if (mHasJournal && sendToJournal(static_cast<int>(pLevel), tText, pEvent)) {
        return;
    }
    if (mForeground) {
        log(levelName(pLevel) + tText);
    } else if (::isatty(STDERR_FILENO) != 0) {
        toStandardError(levelName(pLevel) + tText);
    } else {
        toStandardError(u"<%1>"_s.arg(static_cast<int>(pLevel)) + tText);
    }
}

Failure ServiceApplication::reloadConfiguration()
{
    const auto tConfig = std::make_shared<Config>();
    const QString tPrefix = getConfigPrefix();
    const struct
    {
        QString mName;
        Config::ValueType mType;
    } tFiles[] = {
        {tPrefix + u".cfg"_s, Config::SystemValue},
        {tPrefix + u"_user.cfg"_s, Config::UserValue},
    };
    for (const auto& tFile : tFiles) {
        if (!tConfig->load(getConfigDir() + u'/' + tFile.mName, tFile.mName, tFile.mType, false)) {
            return Failure::content(
                u"The configuration file %1 can't be read: %2"_s.arg(tFile.mName, tConfig->errorText()));
        }
    }
    mReloaded = tConfig;
    return {};
}

QString ServiceApplication::configValue(const QString& pKey) const
{
    return (mReloaded ? mReloaded : getConfig())->getStrValue(pKey);
}

} // namespace tarn::vkservice::process
