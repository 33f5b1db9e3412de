#pragma once

#include <QtCore/QString>

// Texts of others (names, titles, reports, replies of a server) on their way into a mail or a log line. What
// comes out holds no control characters and none that change the direction of writing, so it can neither
// start a line of its own nor show itself as something else.
namespace tarn::vkservice::mail {

// One line of at most pMaxLength characters; line ends become blanks, a cut is marked by an ellipsis.
QString singleLine(const QString& pText, int pMaxLength = 200);
// The same, but with its line ends, each a "\n".
QString manyLines(const QString& pText, int pMaxLength = 2000);

} // namespace tarn::vkservice::mail
