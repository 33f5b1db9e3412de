#pragma once

#include <vkcore/OkiApplication.h>

#include <QtCore/QString>

#include <memory>

namespace tarn::vkservice::process {

// The levels of syslog, as the journal knows them.
enum class LogLevel : int
{
    Error = 3,
    Warning = 4,
    Notice = 5,
    Info = 6,
};

// The frame of the service: its configuration and its log.
class ServiceApplication : public vkcore::OkiApplication
{
    Q_OBJECT

public:
    // pForeground: the log goes to the log file, else to standard error for the journal.
    explicit ServiceApplication(bool pForeground);

    // To standard error, whatever the log is.
    void fatalError(const QString& pText) override;
    void initLogFile() override;
    bool saveUserConfig() override { return true; }

    void write(LogLevel pLevel, const QString& pText);

    // Reads the configuration files anew. False, with a reason and the old configuration still in force, if
    // one of them can't be read.
    bool reloadConfiguration(QString* pError);
    // A value of the configuration in force.
    QString configValue(const QString& pKey) const;
    QString configDir() const { return getConfigDir(); }
    // pChosen, or where none was chosen the language of the service.
    QString languageOr(const QString& pChosen) const { return pChosen.isEmpty() ? getAppLang() : pChosen; }

private:
    bool mForeground;
    std::shared_ptr<vkcore::Config> mReloaded; // null before the first reload
};

} // namespace tarn::vkservice::process
