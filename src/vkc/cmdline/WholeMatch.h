#pragma once

#include <QtCore/QRegularExpression>
#include <QtCore/QString>

namespace tarn::vkc {

// A match of the whole text with a pattern that is anchored at both ends: "$" alone would allow a newline at
// the end.
inline QRegularExpressionMatch
wholeMatch(const QString& pPattern, const QString& pText,
           QRegularExpression::PatternOptions pOptions = QRegularExpression::NoPatternOption)
{
    if (pText.endsWith(u'\n')) {
        return QRegularExpressionMatch();
    }
    return QRegularExpression(pPattern, pOptions).match(pText);
}

} // namespace tarn::vkc
