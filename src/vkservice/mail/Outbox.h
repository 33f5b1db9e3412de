#pragma once

#include "mail/MailQueue.h"
#include "mail/SmtpSettings.h"
#include "mail/SmtpTransport.h"

#include <QtCore/QDateTime>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QThread>

#include <functional>
#include <memory>

namespace tarn::vkservice::mail {

struct MailContent;

// The queue and the thread that empties it, one mail after the other. The object and the database belong to
// the main thread; only the transport works on the other one.
class Outbox : public QObject
{
    Q_OBJECT

public:
    using Clock = std::function<QDateTime()>;
    // Asked right before a mail goes: an empty text lets it, anything else says why it is dropped.
    using Gate = std::function<QString(const QueuedMail& pMail)>;

    Outbox(vkcore::Database& pDatabase, std::unique_ptr<SmtpTransport> pTransport, Clock pClock, Gate pGate);
    // Cuts a transfer under way short; its mail stays in the queue.
    ~Outbox() override;

    bool ensureSchema() { return mQueue.ensureSchema(); }
    // Other settings than the ones before make all waiting mails due.
    void setSettings(const SmtpSettings& pSettings);
    const SmtpSettings& settings() const { return mSettings; }

    // Queues one mail for each recipient. False, with errorText(), at the first that could not be stored:
    // meant to stand in a transaction together with the note that the mail has been written.
    bool add(MailKind pKind, const QStringList& pRecipients, const MailContent& pContent,
             const QDateTime& pExpires = QDateTime());
    // Takes back what has not been sent yet.
    bool withdraw(MailKind pKind, const QString& pRecipient) { return mQueue.removeAll(pKind, pRecipient); }
    QString errorText() const { return mQueue.errorText(); }

    // Sends what is due, if nothing is being sent yet.
    void wake();
    bool isSending() const { return mSending; }

Q_SIGNALS:
    // Nothing is being sent any more, and nothing is due.
    void idle();
    void information(const QString& pText);
    void warning(const QString& pText);

private:
    void sendNext();
    void send(const QueuedMail& pMail);
    void onSent(const QueuedMail& pMail, const SmtpSettings& pSettings, const SendResult& pResult);
    void postpone(const QueuedMail& pMail, const SendResult& pResult);
    void discard(const QueuedMail& pMail);
    bool discardLeftovers();
    QString newMessageId() const;

    std::unique_ptr<SmtpTransport> mTransport;
    Clock mClock;
    Gate mGate;
    MailQueue mQueue;
    SmtpSettings mSettings;
    bool mSettingsKnown = false;
    bool mSending = false;
    bool mQueueWritable = true; // as of the last attempt
    QStringList mLeftovers;     // done with, but the database would not let go of them
    QThread mThread;
    QObject* mWorker; // lives on mThread
};

} // namespace tarn::vkservice::mail
