#pragma once

#include <QtCore/QString>

namespace tarn::os {

// Why something could not be done on this machine.
struct Failure
{
    enum class Kind
    {
        None,
        NoSpace, // the disk or the user's share of it is full
        Io,      // any other failed operation of the system
        Content, // the data itself is not what it must be
        Person,  // nothing is broken, but only a person can say how to go on
        Canceled,
    };

    Kind mKind = Kind::None;
    QString mText; // a sentence without its full stop: what could not be done, and why

    explicit operator bool() const { return mKind != Kind::None; }

    // From errno: pWhat is what could not be done ("write DIR/file").
    static Failure fromErrno(int pErrno, const QString& pWhat);
    static Failure content(const QString& pText) { return {Kind::Content, pText}; }
    static Failure canceled();
};

} // namespace tarn::os
