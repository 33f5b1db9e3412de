#pragma once

#include "internal/Failure.h"

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
    Failure set(const QString& pName, const QString& pValue);
    // Reads the configuration files again. Also logs a failure.
    Failure reload();
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
