#include "mail/Messages.h"

#include "internal/PlainText.h"
#include "mail/MachineStatus.h"

#include <QtCore/QCryptographicHash>

#include <algorithm>
#include <tuple>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::mail {

using vkcore::singleLine;

namespace {

constexpr int sMaxClientName = 64;

QString dateText(const QDateTime& pDate)
{
    return pDate.isValid() ? pDate.toLocalTime().toString(u"yyyy-MM-dd hh:mm"_s) : u"never"_s;
}

MailContent begin(const QString& pClient, const QString& pWhat)
{
    const QString tClient = singleLine(pClient, sMaxClientName);
    MailContent tContent;
    tContent.mSubject = u"%1: %2"_s.arg(tClient, pWhat);
    tContent.mFooter = u"Sent by the update service of %1. To change which mails it sends, use the command "
                       "rkm update-monitoring-settings there."_s.arg(tClient);
    return tContent;
}

MailContent aboutRun(const QString& pClient, const RunReport& pRun, const QString& pWhat,
                     const QString& pParagraph)
{
    MailContent tContent = begin(pClient, pWhat);
    tContent.mParagraphs.append(pParagraph);
    tContent.mFacts = {{u"Computer"_s, singleLine(pClient, sMaxClientName)},
                       {u"Result"_s, pRun.mText},
                       {u"Ended"_s, dateText(pRun.mEnd)}};
    tContent.mPackagesTitle = u"Packages"_s;
    tContent.mPackages = pRun.mPackages;
    return tContent;
}

} // namespace

MailContent updateDone(const QString& pClient, const RunReport& pRun)
{
    return aboutRun(pClient, pRun, u"updates installed"_s,
                    u"Updates have been installed. Number of packages: %1."_s.arg(pRun.mPackages.size()));
}

MailContent updateFailed(const QString& pClient, const RunReport& pRun)
{
    return aboutRun(pClient, pRun, u"update failed"_s,
                    u"An update has failed; what was installed before it is still in use. You get no "
                    "further mail as long as later updates fail for the same reason."_s);
}

MailContent manualIntervention(const QString& pClient, const RunReport& pRun)
{
    return aboutRun(pClient, pRun, u"an update needs you"_s,
                    u"An update can't continue: manual intervention is needed. You get no further "
                    "mail about this until an update has succeeded."_s);
}

MailContent damageFound(const QString& pClient, const DamageReport& pDamage)
{
    MailContent tContent = begin(pClient, u"installed files are damaged"_s);
    tContent.mParagraphs = {
        u"Files of installed packages are not as they were published. The next update "
        "repairs them; the command vkctl repair does it now. If it happens again, check the "
        "disk and who may write to it. You get no further mail about these packages."_s};
    tContent.mFacts = {{u"Computer"_s, singleLine(pClient, sMaxClientName)},
                       {u"Damaged packages"_s, QString::number(pDamage.mPackages.size())}};
    tContent.mPackagesTitle = u"Damaged"_s;
    tContent.mPackages = pDamage.mPackages;
    return tContent;
}

MailContent updateOverdue(const QString& pClient, const MachineStatus& pStatus, const QDateTime& pSince,
                          int pDays)
{
    MailContent tContent = begin(pClient, u"update overdue"_s);
    tContent.mParagraphs.append(
        u"No update has succeeded since %1, longer than the tolerance of %2 "
        "day(s). You get no further mail about this until an update has succeeded."_s.arg(dateText(pSince))
            .arg(pDays));
    if (pStatus.mLastSuccess > pSince) {
        tContent.mParagraphs.append(
            u"The last success is in the future according to this computer's clock. Check the clock."_s);
    }
    tContent.mFacts = {{u"Computer"_s, singleLine(pClient, sMaxClientName)},
                       {u"Last update"_s, dateText(pStatus.mLastRun)},
                       {u"Its result"_s, pStatus.mLastResultText},
                       {u"Last success"_s, dateText(pStatus.mLastSuccess)}};
    return tContent;
}

MailContent summary(const QString& pClient, const MachineStatus& pStatus, bool pOverdue)
{
    MailContent tContent = begin(pClient, u"status of updates"_s);
    tContent.mParagraphs.append(pOverdue ? u"Updates of this computer are overdue."_s
                                         : u"This is the state of this computer's updates."_s);
    tContent.mFacts = {
        {u"Computer"_s, singleLine(pClient, sMaxClientName)},
        {u"Last update"_s, dateText(pStatus.mLastRun)},
        {u"Its result"_s, pStatus.mLastResultText},
        {u"Last success"_s, dateText(pStatus.mLastSuccess)},
        {u"Next check"_s, pStatus.mNextCheck.isValid() ? dateText(pStatus.mNextCheck) : u"not scheduled"_s},
        {u"Installed packages"_s, QString::number(pStatus.mInstalled.size())}};
    tContent.mPackagesTitle = u"Installed"_s;
    tContent.mPackages = pStatus.mInstalled;
    return tContent;
}

MailContent verification(const QString& pClient, const QString& pCommand, const QDateTime& pExpires)
{
    MailContent tContent = begin(pClient, u"please confirm this address"_s);
    tContent.mParagraphs = {
        u"This address was entered for mails about the updates of a computer. They are only sent once it "
        "has been confirmed there, by this command:"_s,
        pCommand,
        u"The code in it is valid until %1. If you don't know what this is about, do nothing: you will "
        "not get such mails."_s.arg(dateText(pExpires))};
    return tContent;
}

QByteArray summaryDigest(const QString& pClient, const MachineStatus& pStatus, bool pOverdue)
{
    QCryptographicHash tHash(QCryptographicHash::Sha256);
    const auto tAdd = [&tHash](const QString& pText) {
        const QByteArray tUtf8 = pText.toUtf8();
        // The length prefix separates neighbouring texts.
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
