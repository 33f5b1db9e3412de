#include "methods/Methods.h"

namespace tarn::vkservice::methods {

void addAll(ipc::MethodTable& pTable, Service& pService)
{
    addSessionMethods(pTable, pService);
    addUpdateMethods(pTable, pService);
    addSettingsMethods(pTable, pService);
    addScheduleMethods(pTable, pService);
    addMonitoringMethods(pTable, pService);
    addServerMethods(pTable, pService);
}

} // namespace tarn::vkservice::methods
