#pragma once

#include <QtCore/QList>

namespace tarn::vkservice::metrics {
class Page;
}
namespace tarn::vkservice::store {
class Settings;
}

namespace tarn::vkservice::control {

class OperatorView;
class VerifyControl;

struct MetricsParts
{
    const store::Settings& mSettings;
    const VerifyControl& mVerifications;
    OperatorView& mView;
};

// Each adds its families to the page. What can't be read at the moment is missing there.
using AddMetrics = void (*)(const MetricsParts& pParts, metrics::Page* pTo);
const QList<AddMetrics>& metricsSections();

} // namespace tarn::vkservice::control
