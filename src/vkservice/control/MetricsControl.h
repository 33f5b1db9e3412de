#pragma once

#include "control/MetricsSections.h"
#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QTimer>

namespace tarn::os {
class FileSystem;
}
namespace tarn::vkservice::store {
class ConfigVariables;
}
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

// Keeps the file of status.metricsFile up to date: soon after a change, and at least every five minutes, so
// that its age tells whether the service runs. A file that can't be written is worth one warning, is tried
// again each minute, and disturbs nothing else.
class MetricsControl : public QObject
{
    Q_OBJECT

public:
    struct Parts
    {
        const store::ConfigVariables& mVariables;
        MetricsParts mSources;
        process::ServiceApplication& mApp;
    };

    MetricsControl(os::FileSystem& pFileSystem, const Parts& pParts);

    // Writes the file for the first time. A worker does not start it: the file is the machine's.
    void start();
    // A figure may have changed.
    void noteChange();
    // To be called once a minute, by a timer that runs anyway: the file causes no wake-ups of its own.
    void tick();

private:
    void update();
    void followPath();
    QByteArray figures() const;
    void noteResult(const Failure& pFailure);

    os::FileSystem& mFileSystem;
    Parts mParts;
    QTimer mSoon; // many changes, one write
    bool mIsStarted = false;
    bool mIsBehind = false;
    QString mPath;          // empty: no file is wanted
    QByteArray mWritten;    // the figures in the file
    QElapsedTimer mAge;     // of the file
    QString mLastComplaint; // empty while all is well
};

} // namespace tarn::vkservice::control
