#include "internal/PlainText.h"

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

bool isLineEnd(QChar pChar)
{
    return pChar == u'\n' || pChar.category() == QChar::Separator_Line ||
           pChar.category() == QChar::Separator_Paragraph || pChar.unicode() == 0x85;
}

bool changesDirection(QChar pChar)
{
    const char16_t tCode = pChar.unicode();
    return (tCode >= 0x202a && tCode <= 0x202e) || (tCode >= 0x2066 && tCode <= 0x2069) || tCode == 0x200e ||
           tCode == 0x200f || tCode == 0x061c;
}

QString cut(const QString& pText, int pMaxLength)
{
    if (pText.size() <= pMaxLength) {
        return pText;
    }
    const bool tInsidePair =
        pText.at(pMaxLength - 1).isLowSurrogate() && pText.at(pMaxLength - 2).isHighSurrogate();
    return pText.left(tInsidePair ? pMaxLength - 2 : pMaxLength - 1) + QChar(0x2026);
}

QString clean(const QString& pText, QChar pLineEnd)
{
    QString tResult;
    tResult.reserve(pText.size());
    for (qsizetype i = 0; i < pText.size(); ++i) {
        const QChar tChar = pText.at(i);
        if (isLineEnd(tChar)) {
            tResult += pLineEnd;
        } else if (tChar.category() == QChar::Other_Control) {
            tResult += u' ';
        } else if (tChar.isHighSurrogate() && i + 1 < pText.size() && pText.at(i + 1).isLowSurrogate()) {
            tResult += tChar;
            tResult += pText.at(++i);
        } else if (tChar.isSurrogate()) {
            tResult += QChar(QChar::ReplacementCharacter);
        } else if (!changesDirection(tChar)) {
            tResult += tChar;
        }
    }
    return tResult;
}

bool actsOnATerminal(char32_t pCode)
{
    const QChar::Category tCategory = QChar::category(pCode);
    return tCategory == QChar::Other_Control || tCategory == QChar::Other_Format ||
           tCategory == QChar::Separator_Line || tCategory == QChar::Separator_Paragraph;
}

} // namespace

QString shownText(const QString& pText)
{
    return clean(pText, u'\n');
}

QString plainJson(const QByteArray& pJson)
{
    QString tResult;
    const QList<uint> tCodes = QString::fromUtf8(pJson).toUcs4();
    for (const char32_t tCode : tCodes) {
        const bool tActs = actsOnATerminal(tCode);
        for (const char16_t tUnit : QChar::fromUcs4(tCode)) {
            if (tActs) {
                tResult += u"\\u%1"_s.arg(tUnit, 4, 16, QChar(u'0'));
            } else {
                tResult += QChar(tUnit);
            }
        }
    }
    return tResult;
}

QString singleLine(const QString& pText, int pMaxLength)
{
    return cut(clean(pText.left(4 * pMaxLength), u' ').simplified(), pMaxLength);
}

QString manyLines(const QString& pText, int pMaxLength)
{
    QString tText = pText.left(4 * pMaxLength);
    tText.replace("\r\n"_L1, "\n"_L1).replace(u'\r', u'\n');
    return cut(clean(tText, u'\n').trimmed(), pMaxLength);
}

} // namespace tarn::vkcore
