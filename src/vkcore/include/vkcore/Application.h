#pragma once

#include <vkcore/Config.h>
#include <vkcore/Export.h>
#include <vkcore/GRef.h>
#include <vkcore/Util.h>
#include <vkcore/Version.h>

#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

namespace tarn::vkcore {

class LogFile;

// The common parts of a program: directories, configuration, log, language. A reference-counted object; the
// program owns it through a GRef. The order of the virtual functions is part of the interface.
//
// finalize() is called once, after the event loop of the QCoreApplication has stopped and before exec()
// returns, so blocking calls in it still work.
class VKCORE_EXPORT Application : public QObject, public CountedObject
{
    Q_OBJECT

public:
    // pPrefixes: names of configuration files, the preferred one first. The first one of which a file exists
    // in the configuration directory is in force, else the first.
    explicit Application(const QList<QString>& pPrefixes);
    ~Application() override;

    virtual bool init() = 0;
    virtual void fatalError(const QString& pText) = 0;
    virtual void requestQuit(int pStatus) = 0;
    virtual void initApplicationDirs();
    virtual void initUserDirs();
    virtual void finalizeDirs();
    // Removes this application's directory of temporary data, if one was created.
    virtual void eraseAppUserDir();
    // Opens the log. A log that can't be written never disturbs the program.
    virtual void initLogFile();
    virtual void saveLogFile();
    // False, with the reason in the log, if a configuration file exists and can't be loaded.
    virtual bool loadApplicationConfig();
    virtual bool loadUserConfig();
    virtual bool saveUserConfig() = 0;
    virtual void finalize();

    // Appends one line with time and process number to the log, in a single write. May be called on any
    // thread. Lines before initLogFile are written by it.
    void log(const QString& pText);
    // Logs a failed check and returns.
    void logAssertFailed(const char* pExpression, const char* pFile, int pLine);

    // QCoreApplication's name and version; if the program has set none, the executable's name and the
    // library's version.
    QString getAppName() const;
    Version getAppVersion() const;
    // "de", "pt_BR": the key application.language, else the language of the locale.
    const QString& getAppLang() const { return mAppLang; }
    // <prefix>/share/rkm beside the executable's bin folder, without a trailing slash.
    QString getAppEtcDir() const;
    QString getConfigPrefix() const { return mConfigPrefix; }
    const std::shared_ptr<Config>& getConfig() const { return mConfig; }
    QString getLogDir() const;
    // Names the log directory; takes effect in initUserDirs.
    void setLogDirName(const QString& pName) { mLogDirName = pName; }
    // The language's own name ("Deutsch"); for an unknown or empty code the code itself.
    QString getLangName(const QString& pCode) const;
    // The codes that can be chosen, from the keys application.languages and data.languages, else the
    // library's own list.
    QList<QString> getAvailableAppLanguages() const;
    QList<QString> getAvailableDataLanguages() const;
    Util* getUtil() const { return mUtil.get(); }

    // <prefix>/etc/vk if that folder exists and the prefix is not /usr: an installation that can be moved.
    // Else /etc/vk for root, and $XDG_CONFIG_HOME/vk for other users.
    QString getConfigDir() const { return mConfigDir; }
    // Where the service keeps its state: the key service.stateDir, else /var/lib/vkservice for root and
    // $XDG_STATE_HOME/vkservice for other users.
    QString getStateDir() const;

protected:
    void setAppName(const QString& pName) { mAppName = pName; }
    // How many old log files stay when the log rotates; takes effect in initLogFile.
    void setKeptLogFiles(int pCount) { mKeptLogFiles = pCount; }
    // Settles getAppLang(), once the configuration is loaded.
    void chooseLanguage();

private:
    bool loadConfigFile(const QString& pFileName, Config::ValueType pType);

    QList<QString> mPrefixes;
    QString mAppName;
    QString mAppLang;
    QString mConfigPrefix;
    QString mConfigDir;
    QString mLogDirName;
    QString mLogDir;
    int mKeptLogFiles = 0;
    std::shared_ptr<Config> mConfig;
    std::unique_ptr<Util> mUtil;
    QMutex mLogMutex; // log() may be called on any thread
    std::unique_ptr<LogFile> mLogFile;
    QList<QString> mEarlyLog; // lines logged before the log file was known
};

} // namespace tarn::vkcore
