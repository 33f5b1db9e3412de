#include "methods/Methods.h"

#include "control/StoreCare.h"
#include "ipc/MethodTable.h"

namespace tarn::vkservice::methods {

ipc::Reply storeFailure(control::StoreCare& pStore, const QString& pWhat)
{
    return ipc::Reply::of(pStore.failure(pWhat));
}

} // namespace tarn::vkservice::methods
