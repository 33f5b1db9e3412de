#pragma once

#include "internal/Failure.h"
#include "process/JournalEvent.h"

#include <vkcore/OkiApplication.h>

#include <QtCore/QString>

#include <memory>

namespace tarn::vkservice::process {

// The syslog levels that the journal uses.
enum class LogLevel : int
{
    Error = 3,
    Warning = 4,
    Notice = 5,
    Info = 6,
};

// The configuration and the log of the service process.
class ServiceApplication : public vkcore::OkiApplication
{
    Q_OBJECT

public:
    // pForeground: log to the log file, else to standard error for the journal.
    explicit ServiceApplication(bool pForeground);

    // Writes to standard error, in either mode.
    void fatalError(const QString& pText) override;
    void initLogFile() override;
    bool saveUserConfig() override { return true; }

    void write(LogLevel pLevel, const QString& pText, const JournalEvent& pEvent = {});
    // For the journal alone: a log of another kind says the same in other lines, or does not need it.
    void note(LogLevel pLevel, const QString& pText, const JournalEvent& pEvent);

    // Reads the configuration files again. If one of them cannot be read, the old configuration stays active.
    Failure reloadConfiguration();
    // A value of the active configuration.
    QString configValue(const QString& pKey) const;
    // False if the log goes to the journal.
    bool writesLogFile() const { return mForeground; }
    QString configDir() const { return getConfigDir(); }
    // pChosen, or the language of the service if none was chosen.
    QString languageOr(const QString& pChosen) const { return pChosen.isEmpty() ? getAppLang() : pChosen; }

private:
    bool mForeground;
    bool mHasJournal;
    std::shared_ptr<vkcore::Config> mReloaded; // null before the first reload
};

} // namespace tarn::vkservice::process
