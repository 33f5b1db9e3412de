#include "keys/Terminal.h"

#include "keys/SignalQueue.h"

#include "internal/PlainText.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

Terminal::Terminal() : mFd(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    if (mFd >= 0 && ::tcgetattr(mFd, &mBefore) != 0) {
        ::close(mFd);
        mFd = -1;
    }
}

Terminal::~Terminal()
{
    if (mFd >= 0) {
        ::close(mFd);
    }
}

void Terminal::print(const QByteArray& pText) const
{
    [[maybe_unused]] const ssize_t tDone = ::write(mFd, pText.constData(), static_cast<size_t>(pText.size()));
}

void Terminal::hide(const QByteArray& pPrompt) const
{
    termios tHidden = mBefore;
    tHidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
    tHidden.c_lflag |= ICANON | ISIG;
    ::tcsetattr(mFd, TCSAFLUSH, &tHidden);
    print(pPrompt);
}

void Terminal::restore() const
{
    ::tcsetattr(mFd, TCSAFLUSH, &mBefore);
    print("\n");
}

Result<Secret> Terminal::ask(const QString& pPrompt)
{
    const QByteArray tPrompt = vkcore::shownText(pPrompt).toLocal8Bit(); // it names files
    SignalQueue tSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};
    Secret tLine;
    hide(tPrompt);
    for (;;) {
        pollfd tPolls[] = {{mFd, POLLIN, 0}, {tSignals.fd(), POLLIN, 0}};
        if (::poll(tPolls, std::size(tPolls), -1) < 0 && errno != EINTR) {
            break;
        }
        if (const int tSignal = tSignals.take()) {
            restore();
            tSignals.deliver(tSignal);
            hide(tPrompt);
        } else if (tPolls[0].revents != 0) {
            const ssize_t tSize = ::read(mFd, tLine.end(), tLine.room());
            tLine.grow(tSize > 0 ? static_cast<size_t>(tSize) : 0);
            if (tSize <= 0 || tLine.hasLine() || tLine.room() == 0) {
                break;
            }
        }
    }
    restore();
    if (!tLine.hasLine()) {
        return Failure::content(tLine.room() == 0 ? u"The passphrase is too long"_s
                                                  : u"No passphrase was given"_s);
    }
    tLine.keepFirstLine();
    return tLine;
}

bool Terminal::isOurs() const
{
    return isOpen() && ::tcgetpgrp(mFd) == ::getpgrp();
}

void Terminal::takeBack() const
{
    const SignalQueue tQuiet{SIGTTOU}; // else it would stop this process, which is in the background
    ::tcsetpgrp(mFd, ::getpgrp());
    ::tcsetattr(mFd, TCSANOW, &mBefore);
}

} // namespace tarn::vkpublish
