// For which machines the packages of a repository are, and when.
#pragma once

#include "record/TargetList.h"

#include "packages/PackageInfo.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::vkpublish {

struct Record;

// The archives of a package, of one version or of all.
QStringList archivesOf(const TargetList& pTargets, const QString& pName,
                       const std::optional<vkcore::Version>& pVersion);

// A phase of pDays for what the next publication offers for the first time; 0 ends the phases of everything.
void setPhases(Record* pRecord, const QDateTime& pNow, int pDays);

// The targets with these archives halted; one that is halted already stays as it is.
TargetList halted(TargetList pTargets, const QStringList& pArchives, const QDateTime& pNow);
// The targets with these archives not halted any more. Their phases go on where they were stopped.
TargetList resumed(TargetList pTargets, const QStringList& pArchives, const QDateTime& pNow);

// "channel beta, halted since ..."; empty for a package that is for all machines at once.
QString releaseText(const packages::Release& pRelease, const QDateTime& pNow);

} // namespace tarn::vkpublish
