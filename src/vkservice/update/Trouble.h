#pragma once

#include "os/Failure.h"
#include "tuf/Updater.h"
#include "values/ResultCode.h"

#include <QtCore/QString>

namespace tarn::vkservice::update {

// Why a run, or one of its packages, can't go on.
struct Trouble
{
    enum class Kind
    {
        None,
        Unreachable, // no answer from the server
        NotFound,    // the server has no such file
        Untrusted,   // the server gave something else than what was signed
        OutOfDate,   // the server is behind what this machine has seen already
        Expired,     // what was signed is too old
        NoServer,    // nobody to ask
        NoSpace,
        Failed,  // an operation of this machine, or a package that can't be installed
        Damaged, // the service's own records
        AppsRunning,
        Person, // only a person can say how to go on
        Canceled,
    };

    Kind mKind = Kind::None;
    QString mText; // a sentence without its full stop

    explicit operator bool() const { return mKind != Kind::None; }
    // True for what the server is to blame for.
    bool isServersFault() const;
    // True where another server may do better.
    bool mayAskAnotherServer() const;
    ResultCode code() const;

    static Trouble from(const os::Failure& pFailure);
    static Trouble from(const tuf::Error& pError);
    static Trouble canceled() { return {Kind::Canceled, resultText(ResultAborted)}; }
};

} // namespace tarn::vkservice::update
