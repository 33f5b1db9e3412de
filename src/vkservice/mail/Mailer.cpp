#include "mail/Mailer.h"

#include "internal/PlainText.h"
#include "mail/Address.h"
#include "mail/CurlTransport.h"
#include "mail/MailContent.h"
#include "mail/Messages.h"
#include "sqlite/Database.h"

#include <QtCore/QSet>
#include <QtCore/QSysInfo>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::mail {

using vkcore::singleLine;

namespace {

constexpr int sMaxAddresses = 100;
constexpr int sMaxUnstoredRuns = 100;
const QString sVerifyPrefix = u"mail.verify."_s;

} // namespace

Mailer::Mailer(vkcore::Database& pDatabase, StatusSource pStatus, QObject* pParent,
               std::unique_ptr<SmtpTransport> pTransport, const Clock& pClock)
    : QObject(pParent), mDatabase(pDatabase), mStatus(std::move(pStatus)), mClock(pClock), mMemory(pDatabase),
      mVerification(pDatabase),
      mOutbox(pDatabase, pTransport ? std::move(pTransport) : std::make_unique<CurlTransport>(), pClock,
              [this](const QueuedMail& tMail) { return objection(tMail); }),
      mNotices(pDatabase, mMemory, mOutbox)
{
    connect(&mOutbox, &Outbox::idle, this, &Mailer::idle);
    connect(&mOutbox, &Outbox::information, this, &Mailer::information);
    connect(&mOutbox, &Outbox::warning, this, &Mailer::warning);
    connect(&mOutbox, &Outbox::givenUp, this, &Mailer::givenUp);
}

Mailer::~Mailer() = default;

QString Mailer::client() const
{
    const QString tName = singleLine(mSettings->clientName(), 64);
    return tName.isEmpty() ? singleLine(QSysInfo::machineHostName(), 64) : tName;
}

const vkcore::MonitoringEmail* Mailer::find(const QString& pAddress) const
{
    const vkcore::MonitoringEmailList& tList = mSettings->notificationEmailAddresses();
    const auto tFound = std::find_if(tList.begin(), tList.end(), [&](const vkcore::MonitoringEmail& tEntry) {
        return addressKey(tEntry.mAddress) == addressKey(pAddress);
    });
    return tFound == tList.end() ? nullptr : &*tFound;
}

// Each usable address once.
QStringList Mailer::addresses(bool pVerified) const
{
    QStringList tAddresses;
    QSet<QString> tSeen;
    for (const vkcore::MonitoringEmail& tEntry : mSettings->notificationEmailAddresses()) {
        if (tSeen.size() >= sMaxAddresses) {
            break;
        }
        if (!isMailAddress(tEntry.mAddress) || tSeen.contains(addressKey(tEntry.mAddress))) {
            continue;
        }
        tSeen.insert(addressKey(tEntry.mAddress));
        if (tEntry.isVerified() == pVerified) {
            tAddresses.append(tEntry.mAddress);
        }
    }
    return tAddresses;
}

// The final check of the recipient, right before a mail is sent: settings may have changed while it waited.
QString Mailer::objection(const QueuedMail& pMail) const
{
    const vkcore::MonitoringEmail* tEntry = find(pMail.mMail.mRecipient);
    if (tEntry == nullptr) {
        return u"the address has been removed from the settings"_s;
    }
    if (pMail.mKind != MailKind::Verification) {
        return tEntry->isVerified() ? QString() : u"the address is not verified"_s;
    }
    if (tEntry->isVerified()) {
        return u"the address is already verified"_s;
    }
    if (pMail.mExpires <= mClock()) {
        return u"its code has expired"_s;
    }
    return {};
}

void Mailer::warnAboutSettings()
{
    QString tWarning;
    const SmtpSettings& tSmtp = mOutbox.settings();
    const bool tAnyAddress = mSettings && !mSettings->notificationEmailAddresses().isEmpty();
    if (tAnyAddress && !tSmtp.problem().isEmpty()) {
        tWarning = u"Mail addresses are set, but no mails can be sent: %1"_s.arg(tSmtp.problem());
    }
    if (tWarning != mLastSettingsWarning && !tWarning.isEmpty()) {
        Q_EMIT warning(tWarning);
    }
    mLastSettingsWarning = tWarning;
}

// A full disk is worth one warning for each action that it stops, not one a minute.
void Mailer::noteStoring(bool pOk, const QString& pWhat)
{
    if (pOk) {
        mStoreWarnings.remove(pWhat);
        return;
    }
    const QString tReason = mNotices.errorText().isEmpty() ? mDatabase.errorText() : mNotices.errorText();
    if (mStoreWarnings.value(pWhat) != tReason) {
        mStoreWarnings.insert(pWhat, tReason);
        Q_EMIT warning(u"%1 can't be queued: %2"_s.arg(pWhat, tReason));
    }
}

Verification::Issue Mailer::sendCode(const QString& pAddress, bool pReplace)
{
    const QDateTime tExpires = mClock().addSecs(Verification::sValidHours * 60 * 60);
    Verification::Issue tIssue = Verification::Issue::NotStored;
    const bool tStored = mDatabase.transaction([&] {
        QString tCode;
        tIssue = mVerification.issue(pAddress, mClock(), pReplace, &tCode);
        if (tIssue != Verification::Issue::Issued) {
            return tIssue != Verification::Issue::NotStored;
        }
        const QString tCommand =
            u"rkm update-settings --config-var=%1%2:%3"_s.arg(sVerifyPrefix, pAddress, tCode);
        return mOutbox.withdraw(MailKind::Verification, pAddress) &&
               mOutbox.add(MailKind::Verification, {pAddress}, verification(client(), tCommand, tExpires),
                           tExpires);
    });
    return tStored ? tIssue : Verification::Issue::NotStored;
}

void Mailer::sendCodes(Reason pReason)
{
    if (!mOutbox.settings().isOn()) {
        return;
    }
    bool tStored = true;
    for (const QString& tAddress : addresses(false)) {
        if (pReason == Reason::Loaded && mVerification.isKnown(tAddress)) {
            continue;
        }
        const Verification::Issue tIssue = sendCode(tAddress, false);
        tStored = tStored && tIssue != Verification::Issue::NotStored;
        if (tIssue == Verification::Issue::TooSoon && pReason == Reason::Changed) {
            Q_EMIT information(u"No new code is mailed to %1 now: too many were sent lately"_s.arg(tAddress));
        }
    }
    noteStoring(tStored, u"Verification mails"_s);
}

Failure Mailer::requestCode(const QString& pAddress)
{
    const QString tProblem = mOutbox.settings().problem();
    if (!tProblem.isEmpty()) {
        return Failure::content(u"No code can be mailed: %1"_s.arg(tProblem));
    }
    switch (sendCode(pAddress, true)) {
    case Verification::Issue::Issued:
    case Verification::Issue::StillValid:
        break;
    case Verification::Issue::TooSoon:
        return Failure::content(
            u"No new code is mailed to %1 now: too many were sent lately. Try again later"_s.arg(pAddress));
    case Verification::Issue::NotStored:
        return {Failure::Kind::Io, u"The code could not be stored: %1"_s.arg(mDatabase.errorText())};
    }
    mOutbox.wake();
    return {};
}

void Mailer::reportRuns()
{
    bool tOk = true;
    while (tOk && !mRuns.isEmpty()) {
        tOk = mNotices.runFinished(audience(), mRuns.first());
        if (tOk) {
            mRuns.removeFirst();
        }
    }
    noteStoring(tOk, u"The mail about an update"_s);
}

void Mailer::reportDamage()
{
    if (!mDamage) {
        return;
    }
    const bool tOk = mNotices.damageKnown(audience(), *mDamage);
    noteStoring(tOk, u"The mail about damaged packages"_s);
    if (tOk) {
        mDamage.reset();
    }
}

void Mailer::checkMachine()
{
    const Notices::Audience tAudience = audience();
    const bool tOverdueAsked =
        tAudience.mSettings.eventMailsEnabled() && tAudience.mSettings.eventMailOnOverdue();
    if (tAudience.mAddresses.isEmpty() || (!tOverdueAsked && !tAudience.mSettings.summarizedMailsEnabled())) {
        return;
    }
    const QDateTime tNow = mClock();
    const MachineStatus tStatus = mStatus();
    QDateTime tSummary;
    bool tOk = mNotices.checkOverdue(tAudience, tStatus, tNow);
    tOk = mNotices.checkSummary(tAudience, tStatus, tNow, &tSummary) && tOk;
    noteStoring(tOk, u"A mail about the machine"_s);
    if (tSummary.isValid()) {
        mSettings->mLastSummary = tSummary;
        Q_EMIT summaryQueued(tSummary);
    }
}

Failure Mailer::open()
{
    const bool tOk = mMemory.ensureSchema() && mVerification.ensureSchema() && mOutbox.ensureSchema() &&
                     mNotices.startWatching(mClock());
    return tOk ? Failure() : Failure{Failure::Kind::Damaged, mDatabase.errorText()};
}

void Mailer::setSmtpSettings(const SmtpSettings& pSettings)
{
    mOutbox.setSettings(pSettings);
    if (mSettings) {
        warnAboutSettings();
        sendCodes(Reason::Loaded);
        mOutbox.wake();
    }
}

void Mailer::setMonitoringSettings(const vkcore::MonitoringSettings& pSettings, Reason pReason)
{
    mSettings = pSettings;
    QStringList tKnown;
    for (const vkcore::MonitoringEmail& tEntry : pSettings.notificationEmailAddresses()) {
        tKnown.append(tEntry.mAddress);
        if (!isMailAddress(tEntry.mAddress)) {
            Q_EMIT warning(
                u"No mails are sent to %1: it is not a valid address"_s.arg(singleLine(tEntry.mAddress)));
        }
    }
    for (const QString& tVerified : addresses(true)) {
        mVerification.forget(tVerified);
    }
    mVerification.retain(tKnown, mClock());
    warnAboutSettings();
    sendCodes(pReason);
    mOutbox.wake();
}

void Mailer::onRunFinished(const RunReport& pRun)
{
    if (mRuns.size() >= sMaxUnstoredRuns) {
        mRuns.removeFirst();
    }
    mRuns.append(pRun);
    if (mSettings) {
        reportRuns();
        mOutbox.wake();
    }
}

void Mailer::onPersonNeeded(const RunReport& pWhat)
{
    if (mSettings) {
        noteStoring(mNotices.personNeeded(audience(), pWhat), u"The mail about an update that waits"_s);
        mOutbox.wake();
    }
}

void Mailer::onDamageKnown(const DamageReport& pDamage)
{
    mDamage = pDamage;
    if (mSettings) {
        reportDamage();
        mOutbox.wake();
    }
}

void Mailer::tick()
{
    if (!mSettings) {
        return;
    }
    if (mOutbox.settings().isOn()) {
        reportRuns();
        reportDamage();
        sendCodes(Reason::Loaded);
        checkMachine();
    }
    mOutbox.wake();
}

QString Mailer::verificationAddress(const QString& pVariable)
{
    return pVariable.startsWith(sVerifyPrefix) ? pVariable.mid(sVerifyPrefix.size()) : QString();
}

Failure Mailer::verify(const QString& pAddress, const QString& pCode)
{
    const vkcore::MonitoringEmail* tEntry = mSettings ? find(pAddress) : nullptr;
    const QString tShown = singleLine(pAddress);
    if (tEntry == nullptr || !isMailAddress(tEntry->mAddress)) {
        return Failure::content(u"%1 is not one of the mail addresses"_s.arg(tShown));
    }
    if (tEntry->isVerified()) {
        return {};
    }
    if (pCode.trimmed().isEmpty()) {
        return requestCode(tEntry->mAddress);
    }
    switch (mVerification.check(pAddress, pCode, mClock())) {
    case Verification::Check::Right:
        return {};
    case Verification::Check::Wrong:
        return Failure::content(u"The code for %1 is wrong"_s.arg(tShown));
    case Verification::Check::NoCode:
        return Failure::content(u"There is no code for %1; set %2%1 to an empty value to get a new one"_s.arg(
            tShown, sVerifyPrefix));
    case Verification::Check::Expired:
        return Failure::content(
            u"The code for %1 has expired; set %2%1 to an empty value to get a new one"_s.arg(tShown,
                                                                                              sVerifyPrefix));
    case Verification::Check::NotStored:
        break;
    }
    return {Failure::Kind::Io, u"The code could not be checked: %1"_s.arg(mDatabase.errorText())};
}

QString Mailer::verificationState(const QString& pAddress) const
{
    const vkcore::MonitoringEmail* tEntry = mSettings ? find(pAddress) : nullptr;
    if (tEntry == nullptr) {
        return u"unknown"_s;
    }
    return tEntry->isVerified() ? u"verified"_s : u"not verified"_s;
}

bool Mailer::isSending() const
{
    return mOutbox.isSending();
}

} // namespace tarn::vkservice::mail
