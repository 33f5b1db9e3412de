#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>

namespace tarn::vkservice::mail {

struct Mail;
struct Sender;

// A text as the value of a header, after RFC 2047: plain if it is printable ASCII, else in encoded words of
// UTF-8, folded into lines. Control characters are removed.
QByteArray encodedText(const QString& pText);

// "NAME <ADDRESS>", the name quoted or encoded.
QByteArray encodedMailbox(const Sender& pSender);

// The headers of a mail, each without its line end (but with folds inside) and without those of MIME.
QList<QByteArray> mailHeaders(const Mail& pMail, const Sender& pSender);

} // namespace tarn::vkservice::mail
