#include <vkcore/InstLogEntry.h>

namespace tarn::vkcore {

InstLogEntry::~InstLogEntry() = default;

} // namespace tarn::vkcore
