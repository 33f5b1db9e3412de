#pragma once

#include "keys/Secret.h"

#include "internal/Failure.h"

#include <QtCore/QString>

#include <termios.h>

namespace tarn::vkpublish {

// The terminal of the person who runs this, whatever standard input and output are.
class Terminal
{
public:
    Terminal();
    ~Terminal(); // leaves the terminal as it was
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    bool isOpen() const { return mFd >= 0; }
    int fd() const { return mFd; }

    // Asks for a line, which is not shown. A signal acts after the terminal is as it was; if the process goes
    // on after one, it asks again.
    Result<Secret> ask(const QString& pPrompt);

    // True if this process, and not one in its background, has the terminal.
    bool isOurs() const;
    // Makes this process its owner again, after another one was.
    void takeBack() const;

private:
    void print(const QByteArray& pText) const;
    void hide(const QByteArray& pPrompt) const;
    void restore() const;

    int mFd;
    termios mBefore = {};
};

} // namespace tarn::vkpublish
