#include "mail/Outbox.h"

#include "internal/PlainText.h"
#include "mail/Address.h"
#include "mail/MailContent.h"
#include "mail/Random.h"

#include <csignal>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::mail {

using vkcore::singleLine;

namespace {

// A lost connection must not end the process by SIGPIPE, and all other signals belong to the main thread.
void blockAllSignals()
{
    sigset_t tAll;
    sigfillset(&tAll);
    pthread_sigmask(SIG_BLOCK, &tAll, nullptr);
}

} // namespace

Outbox::Outbox(vkcore::Database& pDatabase, std::unique_ptr<SmtpTransport> pTransport, Clock pClock,
               Gate pGate)
    : mTransport(std::move(pTransport)), mClock(std::move(pClock)), mGate(std::move(pGate)), mQueue(pDatabase)
{
}

Outbox::~Outbox()
{
    mTransport->cancel();
    if (mThread.joinable()) {
        mThread.join();
    }
}

void Outbox::setSettings(const SmtpSettings& pSettings)
{
    const bool tChanged = mSettingsKnown && pSettings != mSettings;
    mSettings = pSettings;
    mSettingsKnown = true;
    if (tChanged && !mQueue.hurry(mClock())) {
        Q_EMIT warning(u"The waiting mails can't be changed: %1"_s.arg(errorText()));
    }
}

QString Outbox::newMessageId() const
{
    const QString tSender = Sender::fromString(mSettings.mSender).mAddress;
    const QString tDomain = tSender.mid(tSender.indexOf(u'@') + 1);
    return u"<%1@%2>"_s.arg(QString::fromLatin1(randomBytes(16).toHex()),
                            tDomain.isEmpty() ? u"vkservice.invalid"_s : tDomain);
}

bool Outbox::add(MailKind pKind, const QStringList& pRecipients, const MailContent& pContent,
                 const QDateTime& pExpires)
{
    const QDateTime tNow = mClock();
    QueuedMail tMail;
    tMail.mKind = pKind;
    tMail.mExpires = pExpires;
    tMail.mMail.mDate = tNow;
    tMail.mMail.mSubject = singleLine(pContent.mSubject);
    tMail.mMail.mText = plainText(pContent);
    tMail.mMail.mHtml = html(pContent);
    for (const QString& tRecipient : pRecipients) {
        tMail.mMail.mRecipient = tRecipient;
        tMail.mMail.mMessageId = newMessageId();
        if (!mQueue.add(tMail, tNow)) {
            return false;
        }
    }
    return true;
}

void Outbox::wake()
{
    if (!mSending && mSettingsKnown && mSettings.problem().isEmpty() && discardLeftovers()) {
        sendNext();
    }
}

void Outbox::sendNext()
{
    while (const std::optional<QueuedMail> tMail = mQueue.nextDue(mClock())) {
        const QString tObjection = mGate(*tMail);
        if (tObjection.isEmpty()) {
            send(*tMail);
            return;
        }
        Q_EMIT warning(u"A %1 to %2 is not sent: %3"_s.arg(mailKindText(tMail->mKind),
                                                           singleLine(tMail->mMail.mRecipient), tObjection));
        discard(*tMail);
        if (!mQueueWritable) {
            break;
        }
    }
    if (mQueueWritable && !errorText().isEmpty()) {
        Q_EMIT warning(u"The queue of mails can't be read: %1"_s.arg(errorText()));
    }
    Q_EMIT idle();
}

void Outbox::send(const QueuedMail& pMail)
{
    mSending = true;
    mThread = std::thread([this, tMail = pMail, tSettings = mSettings] {
        blockAllSignals();
        const SendResult tResult = mTransport->send(tMail.mMail, tSettings);
        QMetaObject::invokeMethod(
            this, [this, tMail, tSettings, tResult] { onSent(tMail, tSettings, tResult); },
            Qt::QueuedConnection);
    });
}

void Outbox::onSent(const QueuedMail& pMail, const SmtpSettings& pSettings, const SendResult& pResult)
{
    mThread.join();
    mSending = false;
    const QString tWhat = u"%1 to %2"_s.arg(mailKindText(pMail.mKind), singleLine(pMail.mMail.mRecipient));
    switch (pResult.mOutcome) {
    case SendResult::Outcome::Sent:
        Q_EMIT information(u"Sent: %1"_s.arg(tWhat));
        discard(pMail);
        break;
    case SendResult::Outcome::Refused:
        Q_EMIT givenUp(u"Given up: %1: %2"_s.arg(tWhat, pResult.mText));
        discard(pMail);
        break;
    case SendResult::Outcome::Deferred:
        Q_EMIT warning(u"Will be retried: %1: %2"_s.arg(tWhat, pResult.mText));
        postpone(pMail, pResult);
        break;
    case SendResult::Outcome::ServerFailed:
        // A failure with settings that were replaced meanwhile does not say anything about the current ones.
        if (pSettings == mSettings) {
            Q_EMIT warning(u"Mails can't be sent now and will be retried: %1"_s.arg(pResult.mText));
            postpone(pMail, pResult);
        }
        break;
    case SendResult::Outcome::Canceled:
        Q_EMIT idle();
        return;
    }
    if (!mQueueWritable || !mSettings.problem().isEmpty()) {
        Q_EMIT idle();
        return;
    }
    sendNext();
}

void Outbox::postpone(const QueuedMail& pMail, const SendResult& pResult)
{
    const bool tAll = pResult.mOutcome == SendResult::Outcome::ServerFailed;
    QList<QueuedMail> tGivenUp;
    mQueueWritable = mQueue.postpone(pMail.mMail.mMessageId, tAll, mClock(), &tGivenUp);
    if (!mQueueWritable) {
        Q_EMIT warning(u"The queue of mails can't be written, so none are sent: %1"_s.arg(errorText()));
        return;
    }
    for (const QueuedMail& tMail : std::as_const(tGivenUp)) {
        Q_EMIT givenUp(u"Given up after %1 attempts: %2 to %3: %4"_s.arg(
            QString::number(tMail.mAttempts), mailKindText(tMail.mKind), singleLine(tMail.mMail.mRecipient),
            pResult.mText));
    }
}

// A mail that cannot be removed must not be sent again: sending stops until the removal succeeds.
void Outbox::discard(const QueuedMail& pMail)
{
    mQueueWritable = mQueue.remove(pMail.mMail.mMessageId);
    if (!mQueueWritable) {
        mLeftovers.append(pMail.mMail.mMessageId);
        Q_EMIT warning(u"The queue of mails can't be written, so none are sent: %1"_s.arg(errorText()));
    }
}

bool Outbox::discardLeftovers()
{
    while (!mLeftovers.isEmpty()) {
        if (!mQueue.remove(mLeftovers.first())) {
            return false;
        }
        mLeftovers.removeFirst();
    }
    return true;
}

} // namespace tarn::vkservice::mail
