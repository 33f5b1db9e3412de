#include "mail/Messages.h"

#include "internal/PlainText.h"

#include <QtCore/QCryptographicHash>

#include <algorithm>
#include <tuple>

namespace tarn::vkservice::mail {

using vkcore::singleLine;

namespace {

constexpr int sMaxClientName = 64;

QString dateText(const QDateTime& pDate)
{
    return pDate.isValid() ? pDate.toLocalTime().toString(QStringLiteral("yyyy-MM-dd hh:mm"))
                           : QStringLiteral("never");
}

MailContent begin(const QString& pClient, const QString& pWhat)
{
    const QString tClient = singleLine(pClient, sMaxClientName);
    MailContent tContent;
    tContent.mSubject = QStringLiteral("%1: %2").arg(tClient, pWhat);
    tContent.mFooter =
        QStringLiteral("Sent by the update service of %1. Which mails it sends is set with the command "
                       "rkm update-monitoring-settings there.")
            .arg(tClient);
    return tContent;
}

MailContent aboutRun(const QString& pClient, const RunReport& pRun, const QString& pWhat,
                     const QString& pParagraph)
{
    MailContent tContent = begin(pClient, pWhat);
    tContent.mParagraphs.append(pParagraph);
    tContent.mFacts = {{QStringLiteral("Computer"), singleLine(pClient, sMaxClientName)},
                       {QStringLiteral("Result"), pRun.mText},
                       {QStringLiteral("Ended"), dateText(pRun.mEnd)}};
    tContent.mPackagesTitle = QStringLiteral("Packages");
    tContent.mPackages = pRun.mPackages;
    return tContent;
}

} // namespace

MailContent updateDone(const QString& pClient, const RunReport& pRun)
{
    return aboutRun(
        pClient, pRun, QStringLiteral("updates installed"),
        QStringLiteral("Updates have been installed. Number of packages: %1.").arg(pRun.mPackages.size()));
}

MailContent updateFailed(const QString& pClient, const RunReport& pRun)
{
    return aboutRun(
        pClient, pRun, QStringLiteral("update failed"),
        QStringLiteral("An update has failed; what was installed before it is still in use. You get no "
                       "further mail as long as later updates fail for the same reason."));
}

MailContent manualIntervention(const QString& pClient, const RunReport& pRun)
{
    return aboutRun(
        pClient, pRun, QStringLiteral("an update needs you"),
        QStringLiteral("An update can't go on by itself: manual intervention is needed. You get no further "
                       "mail about this until an update has succeeded."));
}

MailContent updateOverdue(const QString& pClient, const MachineStatus& pStatus, const QDateTime& pSince,
                          int pDays)
{
    MailContent tContent = begin(pClient, QStringLiteral("update overdue"));
    tContent.mParagraphs.append(
        QStringLiteral("No update has succeeded since %1, longer than the tolerance of %2 "
                       "day(s). You get no further mail about this until an update has succeeded.")
            .arg(dateText(pSince))
            .arg(pDays));
    if (pStatus.mLastSuccess > pSince) {
        tContent.mParagraphs.append(
            QStringLiteral("The last success lies in the future of this computer's clock. Check the clock."));
    }
    tContent.mFacts = {{QStringLiteral("Computer"), singleLine(pClient, sMaxClientName)},
                       {QStringLiteral("Last update"), dateText(pStatus.mLastRun)},
                       {QStringLiteral("Its result"), pStatus.mLastResultText},
                       {QStringLiteral("Last success"), dateText(pStatus.mLastSuccess)}};
    return tContent;
}

MailContent summary(const QString& pClient, const MachineStatus& pStatus, bool pOverdue)
{
    MailContent tContent = begin(pClient, QStringLiteral("status of updates"));
    tContent.mParagraphs.append(pOverdue ? QStringLiteral("Updates of this computer are overdue.")
                                         : QStringLiteral("This is the state of this computer's updates."));
    tContent.mFacts = {{QStringLiteral("Computer"), singleLine(pClient, sMaxClientName)},
                       {QStringLiteral("Last update"), dateText(pStatus.mLastRun)},
                       {QStringLiteral("Its result"), pStatus.mLastResultText},
                       {QStringLiteral("Last success"), dateText(pStatus.mLastSuccess)},
                       {QStringLiteral("Next check"), pStatus.mNextCheck.isValid()
                                                          ? dateText(pStatus.mNextCheck)
                                                          : QStringLiteral("not scheduled")},
                       {QStringLiteral("Installed packages"), QString::number(pStatus.mInstalled.size())}};
    tContent.mPackagesTitle = QStringLiteral("Installed");
    tContent.mPackages = pStatus.mInstalled;
    return tContent;
}

MailContent verification(const QString& pClient, const QString& pCommand, const QDateTime& pExpires)
{
    MailContent tContent = begin(pClient, QStringLiteral("please confirm this address"));
    tContent.mParagraphs = {
        QStringLiteral(
            "This address was entered for mails about the updates of a computer. They are only sent once it "
            "has been confirmed there, by this command:"),
        pCommand,
        QStringLiteral(
            "The code in it is valid until %1. If you don't know what this is about, do nothing: you will "
            "not get such mails.")
            .arg(dateText(pExpires))};
    return tContent;
}

QByteArray summaryDigest(const QString& pClient, const MachineStatus& pStatus, bool pOverdue)
{
    QCryptographicHash tHash(QCryptographicHash::Sha256);
    const auto tAdd = [&tHash](const QString& pText) {
        const QByteArray tUtf8 = pText.toUtf8();
        // The length in front keeps neighbouring texts apart.
        tHash.addData(QByteArray::number(tUtf8.size()) + ':' + tUtf8);
    };
    tAdd(pClient);
    tAdd(QString::number(pStatus.mLastResult));
    tAdd(QString::number(pOverdue));
    QList<PackageLine> tInstalled = pStatus.mInstalled;
    std::sort(tInstalled.begin(), tInstalled.end(), [](const PackageLine& pLeft, const PackageLine& pRight) {
        return std::tie(pLeft.mTitle, pLeft.mVersion) < std::tie(pRight.mTitle, pRight.mVersion);
    });
    for (const PackageLine& tPackage : tInstalled) {
        tAdd(tPackage.mTitle);
        tAdd(tPackage.mVersion);
        tAdd(tPackage.mStatus);
        tAdd(tPackage.mReport);
    }
    return tHash.result().toHex();
}

} // namespace tarn::vkservice::mail
