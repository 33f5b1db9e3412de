#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

namespace tarn::vkpublish {

// Takes the bytes of a file that is transferred.
class Receiver
{
public:
    virtual ~Receiver() = default;

    // How many bytes are here: the transfer continues behind them.
    virtual qint64 received() const = 0;
    // Discards them: the file comes from its beginning.
    virtual Failure restart() = 0;
    // A failure ends the transfer.
    virtual Failure write(QByteArrayView pData) = 0;
};

} // namespace tarn::vkpublish
