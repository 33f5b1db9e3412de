#pragma once

#include <QtCore/QString>

// Texts of others (names, titles, reports, what a server answers, what its metadata says) on their way to a
// person: into a line of the socket, the log, a record or a mail. What comes out is valid UTF-16 and holds no
// control characters and none that change the direction of writing, so it can neither steer a terminal, nor
// start a line of its own, nor show itself as something else.
namespace tarn::vkcore {

inline constexpr int sMaxMessage = 4000; // for a message that quotes others

// One line of at most pMaxLength characters; line ends become blanks, a cut is marked by an ellipsis.
QString singleLine(const QString& pText, int pMaxLength = 200);
// The same, but with its line ends, each a "\n".
QString manyLines(const QString& pText, int pMaxLength = 2000);

// An empty text instead of a null one.
inline QString present(const QString& pText)
{
    return pText.isNull() ? QLatin1String("") : pText;
}

} // namespace tarn::vkcore
