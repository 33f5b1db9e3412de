#include <vkcore/ServerList.h>

namespace tarn::vkcore {

ServerList::ServerList(Application*) {}
ServerList::~ServerList() = default;

} // namespace tarn::vkcore
