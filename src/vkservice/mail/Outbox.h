#pragma once

#include "mail/MailQueue.h"
#include "mail/SmtpSettings.h"
#include "mail/SmtpTransport.h"

#include <QtCore/QDateTime>
#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <functional>
#include <memory>
#include <thread>

namespace tarn::vkservice::mail {

struct MailContent;

// The queue of mails, which sends them one after the other, each on a thread of its own. The object and the
// database belong to the main thread; only the transport works on the other one.
class Outbox : public QObject
{
    Q_OBJECT

public:
    using Clock = std::function<QDateTime()>;
    // Called right before a mail is sent: an empty text allows it, any other is the reason to drop it.
    using Gate = std::function<QString(const QueuedMail& pMail)>;

    Outbox(vkcore::Database& pDatabase, std::unique_ptr<SmtpTransport> pTransport, Clock pClock, Gate pGate);
    // Cancels a running transfer; its mail stays in the queue.
    ~Outbox() override;

    bool ensureSchema() { return mQueue.ensureSchema(); }
    // If the settings differ from the previous ones, all waiting mails become due.
    void setSettings(const SmtpSettings& pSettings);
    const SmtpSettings& settings() const { return mSettings; }

    // Queues one mail for each recipient. Stops at the first that could not be stored and returns false, with
    // errorText(). Meant for a transaction that also records the mail as written.
    bool add(MailKind pKind, const QStringList& pRecipients, const MailContent& pContent,
             const QDateTime& pExpires = QDateTime());
    // Removes mails that were not sent yet.
    bool withdraw(MailKind pKind, const QString& pRecipient) { return mQueue.removeAll(pKind, pRecipient); }
    QString errorText() const { return mQueue.errorText(); }

    // Sends the due mails, unless a transfer is running.
    void wake();
    bool isSending() const { return mSending; }

Q_SIGNALS:
    // Emitted when no transfer is running and no mail is due.
    void idle();
    void information(const QString& pText);
    void warning(const QString& pText);
    // The same about a mail that will not be sent.
    void givenUp(const QString& pText);

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
    QStringList mLeftovers;     // processed, but the database could not remove them
    // The running transfer. It is joined, so that nothing of it, libraries' data of the thread included,
    // outlives the object.
    std::thread mThread;
};

} // namespace tarn::vkservice::mail
