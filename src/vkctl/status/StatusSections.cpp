#include "status/StatusSections.h"

#include "status/Sections.h"

namespace tarn::vkctl {

const QList<MakeStatusSection>& statusSections()
{
    static const QList<MakeStatusSection> sSections{&updateSection, &leftOutSection};
    return sSections;
}

} // namespace tarn::vkctl
