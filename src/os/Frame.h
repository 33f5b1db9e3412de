#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QDeadlineTimer>

namespace tarn::os {

// Messages on a stream socket: four bytes with the length, then the message.
inline constexpr quint32 sMaxFrame = 1024 * 1024;

// The kind Unreachable says that the other end is closed, Content that it sends no messages.
Failure sendFrame(int pSocket, const QByteArray& pMessage, const QDeadlineTimer& pDeadline);
Result<QByteArray> receiveFrame(int pSocket, const QDeadlineTimer& pDeadline);

} // namespace tarn::os
