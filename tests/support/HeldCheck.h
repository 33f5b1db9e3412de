#pragma once

#include "Installation.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>
#include <QtCore/QThread>

// A check of the administrator that lasts until the test lets it go, and then passes.
class HeldCheck
{
public:
    explicit HeldCheck(Installation& pPlace) : mPlace(pPlace)
    {
        const QByteArray tBegun = QFile::encodeName(pPlace.path("check-has-begun"));
        const QByteArray tGo = QFile::encodeName(pPlace.path("check-may-end"));
        pPlace.writeFile("etc/vk/check.d/held",
                         "#!/bin/sh\ntouch " + tBegun + "\nuntil test -e " + tGo + "; do sleep 0.02; done\n");
        QFile::setPermissions(pPlace.path("etc/vk/check.d/held"),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // Waits for it. The next call waits for the next one.
    bool hasBegun() const
    {
        const QString tMark = mPlace.path("check-has-begun");
        for (const QDeadlineTimer tDeadline(20000); !QFile::exists(tMark) && !tDeadline.hasExpired();) {
            QThread::msleep(10);
        }
        return QFile::remove(tMark);
    }
    void letGo() const { mPlace.writeFile("check-may-end", {}); }

private:
    Installation& mPlace;
};
