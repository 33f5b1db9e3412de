#pragma once

#include <QtCore/QRegularExpression>
#include <QtCore/QString>

namespace tarn::vkc {

// A match of the pattern, which is anchored at both ends, that takes the whole text: "$" alone
// would let a newline at the end pass.
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
