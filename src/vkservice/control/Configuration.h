#pragma once

#include <QtCore/QObject>
#include <QtCore/QString>

namespace tarn::vkservice::store {
class ConfigVariables;
}
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

// The variables, and the configuration files that give their defaults.
class Configuration : public QObject
{
    Q_OBJECT

public:
    Configuration(store::ConfigVariables& pVariables, process::ServiceApplication& pApp);

    const store::ConfigVariables& variables() const { return mVariables; }
    // False with a reason.
    bool set(const QString& pName, const QString& pValue, QString* pReason);
    // Reads the configuration files again. On failure returns false with a reason, which is also logged.
    bool reload(QString* pError);
    // Logs each value that is ignored.
    void logComplaints() const;

Q_SIGNALS:
    // The value of a variable may have changed.
    void changed();

private:
    store::ConfigVariables& mVariables;
    process::ServiceApplication& mApp;
};

} // namespace tarn::vkservice::control
