#pragma once

#include <QtCore/QString>

#include <optional>
#include <utility>

namespace tarn {

// Why something could not be done. True if there is one; a default one is none.
struct [[nodiscard]] Failure
{
    enum class Kind
    {
        None,
        Unreachable, // the server gave no answer, or one that is not a file: another server may do better
        NotFound,    // the file does not exist
        Untrusted,   // signature, hash, length, version or format is wrong
        OutOfDate,   // correctly signed, but older than what this machine has already seen
        Expired,     // correctly signed, but too old: also a sign of a frozen mirror
        NoServer,    // there is no usable server
        NoSpace,     // the disk or the user's share of it is full
        Io,          // any other failed operation of the system
        Content,     // the data itself, or what it asks for, is invalid
        Damaged,     // the records of this machine can't be read or written
        CheckFailed, // the new packages did not prove themselves, and are not in use any more
        AppsRunning, // programs that must end first still run
        Person,      // nothing is broken, but a person must decide
        Canceled,
    };

    Kind mKind = Kind::None;
    QString mText; // a sentence without its full stop: what failed, and why

    explicit operator bool() const { return mKind != Kind::None; }
    // The same failure with another kind; no failure stays no failure.
    Failure as(Kind pKind) const { return {*this ? pKind : Kind::None, mText}; }

    // pWhat is the action that failed ("write DIR/file").
    static Failure fromErrno(int pErrno, const QString& pWhat);
    static Failure content(const QString& pText) { return {Kind::Content, pText}; }
    static Failure untrusted(const QString& pText) { return {Kind::Untrusted, pText}; }
    static Failure canceled();
};

// A value, or why there is none.
template <typename T>
class [[nodiscard]] Result
{
public:
    Result(T pValue) : mValue(std::move(pValue)) {}
    Result(Failure pFailure) : mFailure(std::move(pFailure)) {}

    explicit operator bool() const { return mValue.has_value(); }
    T& operator*() { return *mValue; }
    const T& operator*() const { return *mValue; }
    T* operator->() { return &*mValue; }
    const T* operator->() const { return &*mValue; }
    // For callers that do not need the reason.
    T valueOr(T pOther) const { return mValue.value_or(std::move(pOther)); }
    const Failure& failure() const { return mFailure; }

private:
    std::optional<T> mValue;
    Failure mFailure;
};

} // namespace tarn
