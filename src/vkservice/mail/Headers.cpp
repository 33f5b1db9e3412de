#include "mail/Headers.h"

#include "internal/PlainText.h"
#include "mail/Address.h"
#include "mail/Mail.h"

#include <QtCore/QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::mail {

using vkcore::singleLine;

namespace {

// In base64 and with its delimiters an encoded word stays below 75 characters, and the line with the longest
// header name below the 76 that the standard allows.
constexpr qsizetype sMaxWordBytes = 39;

bool isPlain(const QString& pText)
{
    return !pText.contains("=?"_L1) && std::all_of(pText.begin(), pText.end(), [](QChar tChar) {
        return tChar >= u' ' && tChar <= u'~';
    });
}

QByteArray encodedWords(const QString& pText)
{
    QList<QByteArray> tWords;
    QByteArray tBytes;
    const auto tFlush = [&tWords, &tBytes] {
        tWords.append("=?UTF-8?B?" + tBytes.toBase64() + "?=");
        tBytes.clear();
    };
    for (const uint tCodePoint : pText.toUcs4()) {
        const auto tChar = static_cast<char32_t>(tCodePoint);
        const QByteArray tUtf8 = QString::fromUcs4(&tChar, 1).toUtf8();
        if (tBytes.size() + tUtf8.size() > sMaxWordBytes) {
            tFlush();
        }
        tBytes += tUtf8;
    }
    tFlush();
    return tWords.join("\r\n ");
}

} // namespace

QByteArray encodedText(const QString& pText)
{
    const QString tText = singleLine(pText);
    return isPlain(tText) ? tText.toLatin1() : encodedWords(tText);
}

QByteArray encodedMailbox(const Sender& pSender)
{
    QByteArray tAddress = "<" + pSender.mAddress.toLatin1() + ">";
    QString tName = singleLine(pSender.mName, 64);
    if (tName.isEmpty()) {
        return tAddress;
    }
    if (!isPlain(tName)) {
        return encodedWords(tName) + " " + tAddress;
    }
    tName.replace(u'\\', "\\\\"_L1).replace(u'"', "\\\""_L1);
    return "\"" + tName.toLatin1() + "\" " + tAddress;
}

QList<QByteArray> mailHeaders(const Mail& pMail, const Sender& pSender)
{
    return {
        "Date: " + pMail.mDate.toString(Qt::RFC2822Date).toLatin1(),
        "From: " + encodedMailbox(pSender),
        "To: <" + pMail.mRecipient.toLatin1() + ">",
        "Message-ID: " + pMail.mMessageId.toLatin1(),
        "Subject: " + encodedText(pMail.mSubject),
        // Stops holiday notes and other automatic replies.
        "Auto-Submitted: auto-generated",
    };
}

} // namespace tarn::vkservice::mail
