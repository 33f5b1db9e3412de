#pragma once

namespace tarn::vkctl {

class CtlApplication;
struct StatusSection;

// One source file each.
StatusSection updateSection(CtlApplication& pApp);
StatusSection leftOutSection(CtlApplication& pApp);

} // namespace tarn::vkctl
