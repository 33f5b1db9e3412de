#include <vkcore/Application.h>

#include "LogFile.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>

#include <unistd.h>

namespace tarn::vkcore {

namespace {

constexpr qsizetype sMaxEarlyLog = 1000;

bool isRoot()
{
    return ::geteuid() == 0;
}

bool exists(const QString& pPath)
{
    return ::access(QFile::encodeName(pPath).constData(), F_OK) == 0;
}

// The place that an XDG variable names; the standard has relative ones ignored.
QString xdgDir(const char* pVariable, const QString& pBelowHome)
{
    const QString tDir = qEnvironmentVariable(pVariable);
    return tDir.startsWith(QLatin1Char('/')) ? tDir : QDir::homePath() + QLatin1Char('/') + pBelowHome;
}

QString xdgConfigDir()
{
    return xdgDir("XDG_CONFIG_HOME", QStringLiteral(".config")) + QStringLiteral("/vk");
}

// The folder above that of the program. The kernel's word is without links already; Qt would look at each of
// its folders once more.
QString installationPrefix()
{
    return QFile::symLinkTarget(QStringLiteral("/proc/self/exe")).section(QLatin1Char('/'), 0, -3);
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
    const QString tPrefix = installationPrefix();
    const QString tMovable = tPrefix + QStringLiteral("/etc/vk");
    if (!tPrefix.isEmpty() && tPrefix != QLatin1String("/usr") && exists(tMovable)) {
        mConfigDir = tMovable;
    } else {
        mConfigDir = isRoot() ? QStringLiteral("/etc/vk") : xdgConfigDir();
    }
    mConfig->setValue(QStringLiteral("application.settingsDir.other"), xdgConfigDir(), Config::DefaultValue);
}

void Application::initUserDirs()
{
    const QString tDefault =
        (isRoot() ? QStringLiteral("/var/log") : getStateDir()) + QLatin1Char('/') + mLogDirName;
    mLogDir = mConfig->getStrValue(QStringLiteral("application.logDir"), tDefault);
}

void Application::finalizeDirs()
{
    eraseAppUserDir();
}

// Nothing in the library makes such a directory; a program that does removes it here.
void Application::eraseAppUserDir() {}

void Application::initLogFile()
{
    const QMutexLocker tLocker(&mLogMutex);
    mLogFile = std::make_unique<LogFile>(mLogDir + QLatin1Char('/') + getAppName() + QStringLiteral(".log"),
                                         mKeptLogFiles);
    for (const QString& tText : std::exchange(mEarlyLog, {})) {
        mLogFile->write(tText);
    }
}

// Every line is in the file when log() returns.
void Application::saveLogFile() {}

bool Application::loadConfigFile(const QString& pFileName, Config::ValueType pType)
{
    const QString tPath = mConfigDir + QLatin1Char('/') + pFileName;
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
        if (exists(mConfigDir + QLatin1Char('/') + tPrefix + QStringLiteral(".cfg"))) {
            mConfigPrefix = tPrefix;
            return loadConfigFile(tPrefix + QStringLiteral(".cfg"), Config::SystemValue);
        }
    }
    return true;
}

bool Application::loadUserConfig()
{
    return loadConfigFile(mConfigPrefix + QStringLiteral("_user.cfg"), Config::UserValue);
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
    log(QStringLiteral("Assertion failed: %1 (%2:%3)")
            .arg(QString::fromUtf8(pExpression), QString::fromUtf8(pFile), QString::number(pLine)));
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
    return installationPrefix() + QStringLiteral("/share/rkm");
}

QString Application::getLogDir() const
{
    return mLogDir;
}

QString Application::getStateDir() const
{
    const QString tDefault =
        isRoot() ? QStringLiteral("/var/lib/vkservice")
                 : xdgDir("XDG_STATE_HOME", QStringLiteral(".local/state")) + QStringLiteral("/vkservice");
    return mConfig->getStrValue(QStringLiteral("service.stateDir"), tDefault);
}

} // namespace tarn::vkcore
