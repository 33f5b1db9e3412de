#pragma once

#include "mail/MailContent.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QString>

// The wording of each kind of mail. pClient is the name of this machine, as set by the administrator.
namespace tarn::vkservice::mail {

struct DamageReport;
struct MachineStatus;
struct RunReport;

MailContent updateDone(const QString& pClient, const RunReport& pRun);
MailContent updateFailed(const QString& pClient, const RunReport& pRun);
MailContent manualIntervention(const QString& pClient, const RunReport& pRun);
// pSince: the last success, or the start of the wait for the first one. Before the last success: the clock is
// wrong.
MailContent updateOverdue(const QString& pClient, const MachineStatus& pStatus, const QDateTime& pSince,
                          int pDays);
MailContent damageFound(const QString& pClient, const DamageReport& pDamage);
MailContent summary(const QString& pClient, const MachineStatus& pStatus, bool pOverdue);
// pCommand: the command for the administrator to enter. Reveals only the name of the machine.
MailContent verification(const QString& pClient, const QString& pCommand, const QDateTime& pExpires);

// Equal for two summaries with the same facts about the machine; ignores times and wording of runs and the
// order of packages.
QByteArray summaryDigest(const QString& pClient, const MachineStatus& pStatus, bool pOverdue);

} // namespace tarn::vkservice::mail
