#include <vkcore/Application.h>

#include "internal/Machine.h"
#include "LogFile.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

constexpr qsizetype sMaxEarlyLog = 1000;

bool exists(const QString& pPath)
{
    return ::access(QFile::encodeName(pPath).constData(), F_OK) == 0;
}

// The place that an XDG variable names; the standard has relative ones ignored.
QString xdgDir(const char* pVariable, const QString& pBelowHome)
{
    const QString tDir = qEnvironmentVariable(pVariable);
    return tDir.startsWith(u'/') ? tDir : QDir::homePath() + u'/' + pBelowHome;
}

QString xdgConfigDir()
{
    return xdgDir("XDG_CONFIG_HOME", u".config"_s) + u"/vk"_s;
}

} // namespace

Application::Application(const QList<QString>& pPrefixes)
    : mPrefixes(pPrefixes), mConfigPrefix(pPrefixes.value(0)), mConfig(std::make_shared<Config>()),
      mUtil(std::make_unique<Util>())
{
    if (QCoreApplication* tQtApp = QCoreApplication::instance()) {
        connect(
            tQtApp, &QCoreApplication::aboutToQuit, this, [this] { finalize(); }, Qt::SingleShotConnection);
    }
}

Application::~Application() = default;

void Application::initApplicationDirs()
{
    mConfigDir = machine::movableConfigDir();
    if (mConfigDir.isEmpty()) {
        mConfigDir = machine::isActing() ? u"/etc/vk"_s : xdgConfigDir();
    }
    mConfig->setValue(u"application.settingsDir.other"_s, xdgConfigDir(), Config::DefaultValue);
}

void Application::initUserDirs()
{
    const QString tDefault = (machine::isActing() ? u"/var/log"_s : getStateDir()) + u'/' + mLogDirName;
    mLogDir = mConfig->getStrValue(u"application.logDir"_s, tDefault);
}

void Application::finalizeDirs()
{
    eraseAppUserDir();
}

// The library creates no such directory; a program that does removes it here.
void Application::eraseAppUserDir() {}

void Application::initLogFile()
{
    const QMutexLocker tLocker(&mLogMutex);
    mLogFile = std::make_unique<LogFile>(mLogDir + u'/' + getAppName() + u".log"_s, mKeptLogFiles);
    for (const QString& tText : std::exchange(mEarlyLog, {})) {
        mLogFile->write(tText);
    }
}

// Every line is in the file when log() returns.
void Application::saveLogFile() {}

bool Application::loadConfigFile(const QString& pFileName, Config::ValueType pType)
{
    const QString tPath = mConfigDir + u'/' + pFileName;
    if (mConfig->load(tPath, pFileName, pType, false)) {
        return true;
    }
    const QString tText = tr("Failed to load file \"%1\": %2").arg(tPath, mConfig->errorText());
    log(tText);
    fatalError(tText);
    return false;
}

bool Application::loadApplicationConfig()
{
    for (const QString& tPrefix : mPrefixes) {
        if (exists(mConfigDir + u'/' + tPrefix + u".cfg"_s)) {
            mConfigPrefix = tPrefix;
            return loadConfigFile(tPrefix + u".cfg"_s, Config::SystemValue);
        }
    }
    return true;
}

bool Application::loadUserConfig()
{
    return loadConfigFile(mConfigPrefix + u"_user.cfg"_s, Config::UserValue);
}

void Application::finalize()
{
    saveLogFile();
    finalizeDirs();
}

void Application::log(const QString& pText)
{
    const QMutexLocker tLocker(&mLogMutex);
    if (mLogFile) {
        mLogFile->write(pText);
    } else if (mEarlyLog.size() < sMaxEarlyLog) {
        mEarlyLog.append(pText);
    }
}

void Application::logAssertFailed(const char* pExpression, const char* pFile, int pLine)
{
    log(u"Assertion failed: %1 (%2:%3)"_s.arg(QString::fromUtf8(pExpression), QString::fromUtf8(pFile),
                                              QString::number(pLine)));
}

QString Application::getAppName() const
{
    return mAppName.isEmpty() ? QCoreApplication::applicationName() : mAppName;
}

Version Application::getAppVersion() const
{
    bool tOk = false;
    const Version tVersion = Version::fromString(QCoreApplication::applicationVersion(), &tOk);
    return tOk ? tVersion : Version(VKCORE_VERSION_MAJOR, VKCORE_VERSION_MINOR, VKCORE_VERSION_PATCH, 0);
}

QString Application::getAppEtcDir() const
{
    return machine::installationPrefix() + u"/share/rkm"_s;
}

QString Application::getLogDir() const
{
    return mLogDir;
}

QString Application::getStateDir() const
{
    const QString tDefault = machine::isActing()
                                 ? u"/var/lib/vkservice"_s
                                 : xdgDir("XDG_STATE_HOME", u".local/state"_s) + u"/vkservice"_s;
    return mConfig->getStrValue(u"service.stateDir"_s, tDefault);
}

} // namespace tarn::vkcore
