#pragma once

#include <QtCore/QString>

namespace tarn::vkservice {

namespace control {
class Configuration;
class Events;
class Lifetime;
class MailControl;
class OperatorView;
class ReleaseControl;
class ScheduleControl;
class StoreCare;
class UpdateControl;
class VerifyControl;
} // namespace control
namespace ipc {
class MethodTable;
class SocketServer;
struct Reply;
} // namespace ipc
namespace process {
class ServiceApplication;
}
namespace store {
class HoldTable;
class ServerTable;
class Settings;
} // namespace store

// The methods of the socket, one file for each group, with the parts of the service that the group uses.
namespace methods {

struct SessionParts
{
    const ipc::SocketServer& mSockets;
    control::Events& mEvents;
    control::Lifetime& mLifetime;
    control::Configuration& mConfiguration;
};
void addSessionMethods(ipc::MethodTable& pTable, const SessionParts& pParts);

struct UpdateParts
{
    control::UpdateControl& mUpdates;
};
void addUpdateMethods(ipc::MethodTable& pTable, const UpdateParts& pParts);

struct PackageParts
{
    control::VerifyControl& mVerifications;
    const control::OperatorView& mView;
};
void addPackageMethods(ipc::MethodTable& pTable, const PackageParts& pParts);

struct OperatorParts
{
    control::OperatorView& mView;
};
void addOperatorMethods(ipc::MethodTable& pTable, const OperatorParts& pParts);

// What the machine takes of what is offered.
struct ChoiceParts
{
    store::HoldTable& mHolds;
    store::Settings& mSettings;
    control::StoreCare& mStore;
};
void addChoiceMethods(ipc::MethodTable& pTable, const ChoiceParts& pParts);

struct ReleaseParts
{
    const ipc::SocketServer& mSockets;
    control::ReleaseControl& mReleases;
};
void addReleaseMethods(ipc::MethodTable& pTable, const ReleaseParts& pParts);

struct SettingsParts
{
    store::Settings& mSettings;
    control::Configuration& mConfiguration;
    control::MailControl& mMail;
    const control::UpdateControl& mUpdates;
    control::StoreCare& mStore;
    const process::ServiceApplication& mApp;
};
void addSettingsMethods(ipc::MethodTable& pTable, const SettingsParts& pParts);

struct ScheduleParts
{
    control::ScheduleControl& mSchedule;
    control::StoreCare& mStore;
};
void addScheduleMethods(ipc::MethodTable& pTable, const ScheduleParts& pParts);

struct MonitoringParts
{
    store::Settings& mSettings;
    control::MailControl& mMail;
    control::StoreCare& mStore;
};
void addMonitoringMethods(ipc::MethodTable& pTable, const MonitoringParts& pParts);

struct ServerParts
{
    store::ServerTable& mServers;
    control::StoreCare& mStore;
};
void addServerMethods(ipc::MethodTable& pTable, const ServerParts& pParts);

// The answer to a request that failed because the store could not read or write pWhat.
ipc::Reply storeFailure(control::StoreCare& pStore, const QString& pWhat);

} // namespace methods
} // namespace tarn::vkservice
