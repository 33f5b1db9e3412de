#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonValue>

namespace tarn::tuf {

// The one byte form of a JSON value that signatures are made over: members sorted by code point, no blanks,
// whole numbers only, and no escapes but those of the quote and the backslash.
// False for a value that has no such form: a fraction, a number beyond 64 bits, a text that isn't Unicode.
bool canonicalJson(const QJsonValue& pValue, QByteArray* pTo);

} // namespace tarn::tuf
