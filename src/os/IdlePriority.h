#pragma once

namespace tarn::os {

// From now on the calling thread uses the processor and the disk only when nobody else wants them. What the
// kernel refuses stays as it is.
void makeThreadIdle();

} // namespace tarn::os
