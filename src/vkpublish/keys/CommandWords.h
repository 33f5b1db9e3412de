#pragma once

#include <QtCore/QByteArrayList>
#include <QtCore/QString>

namespace tarn::vkpublish {

// Splits a command into its words as a shell does: at blanks that are not quoted. 'text' stands for itself;
// in "text" a backslash makes " and \ stand for themselves; elsewhere it does so with any character. Nothing
// is replaced or expanded. Empty if a quote does not end, or if there is no word.
QByteArrayList commandWords(const QString& pCommand);

} // namespace tarn::vkpublish
