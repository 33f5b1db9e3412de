// Foreign texts in a mail: senders from the configuration, names of machines, titles and reports of packages.
// No text may inject a header, and mail servers have to accept every line.
#include "internal/PlainText.h"
#include "mail/Address.h"
#include "mail/Headers.h"
#include "mail/Mail.h"
#include "mail/SmtpSettings.h"

#include <QtCore/QDateTime>

#include <algorithm>
#include <cstdlib>

using namespace Qt::StringLiterals;

using namespace tarn::vkservice::mail;
using tarn::vkcore::manyLines;
using tarn::vkcore::singleLine;

namespace {

// Lines are folded with a line end and a space.
void checkHeader(const QByteArray& pHeader)
{
    constexpr qsizetype sMaxLine = 998;
    QByteArray tFolded = pHeader;
    const QByteArrayList tLines = tFolded.replace("\r\n ", "\n").split('\n');
    for (const QByteArray& tLine : tLines) {
        const bool tPrintable =
            std::all_of(tLine.begin(), tLine.end(), [](char pChar) { return pChar >= ' ' && pChar <= '~'; });
        if (!tPrintable || tLine.trimmed().isEmpty() || tLine.size() > sMaxLine) {
            std::abort();
        }
    }
}

void checkLine(const QString& pLine, int pMaxLength)
{
    const bool tBreaks = std::any_of(pLine.begin(), pLine.end(), [](QChar pChar) {
        return pChar.category() == QChar::Other_Control || pChar.category() == QChar::Separator_Line ||
               pChar.category() == QChar::Separator_Paragraph;
    });
    if (tBreaks || pLine.size() > pMaxLength || !pLine.isValidUtf16()) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    // Seeds written by hand end in a newline.
    if (pSize > 0 && pData[pSize - 1] == '\n') {
        --pSize;
    }
    // Also as UTF-16, because JSON can express what UTF-8 can't.
    const QString tUtf8 =
        QString::fromUtf8(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    QString tUtf16(static_cast<qsizetype>(pSize / 2), QChar(0));
    std::copy_n(pData, tUtf16.size() * 2, reinterpret_cast<uint8_t*>(tUtf16.data()));
    for (const QString& tText : {tUtf8, tUtf16}) {
        for (const int tLength : {2, 64, 200}) {
            checkLine(singleLine(tText, tLength), tLength);
        }
        const QStringList tLines = manyLines(tText).split(u'\n');
        for (const QString& tLine : tLines) {
            checkLine(tLine, 2000);
        }
        const Sender tSender = Sender::fromString(tText);
        Mail tMail;
        tMail.mRecipient = isMailAddress(tText) ? tText : u"a@example.com"_s;
        tMail.mSubject = tText;
        tMail.mMessageId = u"<1@example.com>"_s;
        tMail.mDate = QDateTime(QDate(2026, 3, 7), QTime(2, 15), Qt::UTC);
        for (const QByteArray& tHeader : mailHeaders(tMail, tSender)) {
            checkHeader(tHeader);
        }
        SmtpSettings tSmtp;
        tSmtp.mUrl = tSmtp.mSender = tSmtp.mUser = tSmtp.mPassword = tText;
        tSmtp.problem();
    }
    return 0;
}
