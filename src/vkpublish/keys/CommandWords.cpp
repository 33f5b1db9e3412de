#include "keys/CommandWords.h"

#include <optional>

namespace tarn::vkpublish {

QByteArrayList commandWords(const QString& pCommand)
{
    const QByteArray tText = pCommand.toUtf8();
    QByteArrayList tWords;
    std::optional<QByteArray> tWord;
    char tQuote = '\0';
    for (qsizetype i = 0; i < tText.size(); ++i) {
        const char tChar = tText[i];
        const char tNext = i + 1 < tText.size() ? tText[i + 1] : '\0';
        const bool tIsBlank = tChar == ' ' || tChar == '\t' || tChar == '\n';
        if (tChar == '\0' || (tChar == '\\' && tQuote != '\'' && tNext == '\0')) {
            return {};
        }
        if (tQuote == '\0' && tIsBlank) {
            if (tWord) {
                tWords.append(*tWord);
                tWord.reset();
            }
            continue;
        }
        QByteArray& tTo = tWord ? *tWord : tWord.emplace();
        if (tQuote == '\0' && (tChar == '\'' || tChar == '"')) {
            tQuote = tChar;
        } else if (tChar == tQuote) {
            tQuote = '\0';
        } else if (tChar == '\\' && (tQuote == '\0' || (tQuote == '"' && (tNext == '"' || tNext == '\\')))) {
            tTo += tNext;
            ++i;
        } else {
            tTo += tChar;
        }
    }
    if (tWord) {
        tWords.append(*tWord);
    }
    return tQuote == '\0' && !tWords.isEmpty() && !tWords.first().isEmpty() ? tWords : QByteArrayList();
}

} // namespace tarn::vkpublish
