#pragma once

#include "internal/Failure.h"

#include <QtCore/QObject>
#include <QtCore/QString>

namespace tarn::vkservice::store {
class StateStore;
}
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

// Handles a store that fails: logs the error, and replaces a damaged store by an empty one.
class StoreCare : public QObject
{
    Q_OBJECT

public:
    StoreCare(store::StateStore& pStore, process::ServiceApplication& pApp);

    // pWhat could not be read or stored.
    Failure failure(const QString& pWhat);
    // Why the last operation failed.
    QString reason() const;
    // For operations that may have failed meanwhile.
    void replaceIfDamaged();

Q_SIGNALS:
    // The store is empty now.
    void replaced(const QString& pDamagedFile);

private:
    store::StateStore& mStore;
    process::ServiceApplication& mApp;
};

} // namespace tarn::vkservice::control
