#pragma once

#include <QtCore/QString>

namespace tarn::tuf {

enum class ErrorKind
{
    None,
    Unreachable, // the server gave no answer, or one that is no file: another server may do better
    NotFound,    // the server says that it has no such file
    Untrusted,   // signature, hash, length, version or format is wrong: somebody changed something
    OutOfDate,   // rightly signed, but older than what this machine has seen already
    Expired,     // rightly signed, but too old: also a sign of a frozen mirror
    Local,       // the trusted metadata of this machine can't be read or written
    Canceled,
};

struct Error
{
    ErrorKind mKind = ErrorKind::None;
    QString mText; // a full sentence without its full stop, for the administrator

    explicit operator bool() const { return mKind != ErrorKind::None; }
};

} // namespace tarn::tuf
