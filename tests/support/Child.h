#pragma once

#include <csignal>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

// A process that does something and then waits until it is killed, at the latest by the destructor.
class Child
{
public:
    // pBody runs in the child; isReady() waits for it and returns its result.
    template <typename T>
    explicit Child(T pBody)
    {
        int tEnds[2];
        mReady = ::pipe(tEnds) == 0;
        mPid = ::fork();
        if (mPid == 0) {
            const char tOk = pBody() ? 'y' : 'n';
            (void)!::write(tEnds[1], &tOk, 1);
            for (;;) {
                ::pause();
            }
        }
        ::close(tEnds[1]);
        char tOk = 'n';
        mReady = mReady && ::read(tEnds[0], &tOk, 1) == 1 && tOk == 'y';
        ::close(tEnds[0]);
    }
    ~Child() { kill(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool isReady() const { return mReady; }
    pid_t pid() const { return mPid; }
    void kill()
    {
        if (mPid > 0) {
            ::kill(mPid, SIGKILL);
            ::waitpid(mPid, nullptr, 0);
            mPid = 0;
        }
    }

private:
    pid_t mPid = 0;
    bool mReady = false;
};
