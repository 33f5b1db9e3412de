#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonValue>

namespace tarn::tuf {

// The canonical bytes of a JSON value, over which signatures are made: members sorted by code point, no
// spaces, integers only, and only quote and backslash escaped. False for a value without such a form: a
// fraction, a number beyond 64 bits, a text that isn't Unicode.
bool canonicalJson(const QJsonValue& pValue, QByteArray* pTo);

} // namespace tarn::tuf
