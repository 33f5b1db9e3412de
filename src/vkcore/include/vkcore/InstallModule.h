#pragma once

#include <vkcore/Export.h>
#include <vkcore/GRef.h>
#include <vkcore/InstLogEntry.h>

#include <QtCore/QDateTime>
#include <QtCore/QList>

#include <memory>

namespace tarn::vkcore {

class Application;

// Reads the log of installed updates; provided by an install module.
class VKCORE_EXPORT Installer
{
public:
    virtual ~Installer();

    // Appends the entries made from pFrom to pTo, both included, oldest first, at most pMaxCount of them: the
    // newest ones where there are more. An invalid date is no limit. pTopLevelOnly omits packages that were
    // only required by another one. False if the log can't be read; the reason is in the application log and
    // pTo is unchanged.
    virtual bool getInstallLog(QList<GRef2<InstLogEntry>>* pEntries, const QDateTime& pFrom,
                               const QDateTime& pTo, int pMaxCount, bool pTopLevelOnly) = 0;
};

// The door to the install log. It loads the log's reader only in init(), so that a command
// that does not need the log does not pay for it.
class VKCORE_EXPORT InstallModule : public CountedObject
{
public:
    // pModule selects the log: 14 is that of the service's packages, the only one.
    InstallModule(Application* pApp, int pModule);

    // False if the log can't be opened; the reason is in the application log. A log
    // that does not exist yet is an empty one.
    bool init();
    // Owned by the module; null before a successful init().
    Installer* getActiveInstaller() const;

protected:
    ~InstallModule() override;

private:
    Application* mApp;
    int mModule;
    std::unique_ptr<Installer> mInstaller;
};

} // namespace tarn::vkcore
