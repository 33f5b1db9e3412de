#include <vkcore/GRef.h>

namespace tarn::vkcore {

CountedObject::~CountedObject() = default;

} // namespace tarn::vkcore
