#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QStringList>

namespace tarn::vkctl {

class CtlApplication;

// A part of "vkctl status": lines of text, and members of the JSON object.
struct StatusSection
{
    Q_DECLARE_TR_FUNCTIONS(tarn::vkctl::StatusSection)

public:
    QStringList mLines;
    QJsonObject mMembers;
};

// Each asks the service for what it shows. One that a service does not know is empty.
using MakeStatusSection = StatusSection (*)(CtlApplication& pApp);
// In the order in which they are shown.
const QList<MakeStatusSection>& statusSections();

} // namespace tarn::vkctl
