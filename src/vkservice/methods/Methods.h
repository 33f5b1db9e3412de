#pragma once

namespace tarn::vkservice {

class Service;

namespace ipc {
class MethodTable;
}

// The methods of the socket, one group a file.
namespace methods {

void addAll(ipc::MethodTable& pTable, Service& pService);

void addSessionMethods(ipc::MethodTable& pTable, Service& pService);
void addUpdateMethods(ipc::MethodTable& pTable, Service& pService);
void addSettingsMethods(ipc::MethodTable& pTable, Service& pService);
void addScheduleMethods(ipc::MethodTable& pTable, Service& pService);
void addMonitoringMethods(ipc::MethodTable& pTable, Service& pService);
void addServerMethods(ipc::MethodTable& pTable, Service& pService);

} // namespace methods
} // namespace tarn::vkservice
