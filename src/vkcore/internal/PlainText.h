#pragma once

#include <QtCore/QString>

// Sanitizes foreign text (names, titles, reports, answers and metadata of servers) for people, in the
// protocol, the log, a record or a mail. The result is valid UTF-16 without control characters and without
// characters that change the writing direction. So it can't control a terminal, start a new line or spoof
// other text.
namespace tarn::vkcore {

inline constexpr int sMaxMessage = 4000; // for a message that quotes others

// One line of at most pMaxLength characters; line ends become blanks, a cut is marked by an ellipsis.
QString singleLine(const QString& pText, int pMaxLength = 200);
// The same, but with its line ends, each a "\n".
QString manyLines(const QString& pText, int pMaxLength = 2000);

// All of a text of this program, which may quote others: its lines with their indentation.
QString shownText(const QString& pText);

// The text of a JSON value for a terminal: what singleLine() would change is written as \uXXXX, so nothing
// acts on the terminal and a reader of the JSON gets the exact text.
QString plainJson(const QByteArray& pJson);

// An empty text instead of a null one.
inline QString present(const QString& pText)
{
    return pText.isNull() ? QLatin1String("") : pText;
}

} // namespace tarn::vkcore
