#include "CommandLine.h"
#include "process/ParentWatch.h"
#include "process/ServiceApplication.h"
#include "process/SignalWatch.h"
#include "process/Systemd.h"
#include "ProcessSight.h"
#include "Service.h"
#include "StartUp.h"

#include <vkcore/GRef.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

using namespace Qt::StringLiterals;

using namespace tarn;
using namespace tarn::vkservice;
using process::LogLevel;
using process::ServiceApplication;

namespace {

constexpr int sWrongArgument = 2;
constexpr int sUnusedMs = 60000;

void prepareProcess(bool pWorker)
{
    process::SignalWatch::blockSignals();
    ::umask(022);
    rlimit tFiles = {};
    if (::getrlimit(RLIMIT_NOFILE, &tFiles) == 0) {
        tFiles.rlim_cur = tFiles.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &tFiles);
    }
    // Ctrl-C at the terminal is meant for the program that started the worker. That program decides whether
    // to stop. A worker of another user must not be able to type on root's terminal, either.
    if (pWorker && ::setsid() < 0) {
        ::setpgid(0, 0);
    }
}

void print(FILE* pStream, const QString& pText)
{
    std::fputs(pText.toLocal8Bit().constData(), pStream);
}

// Ends the worker when nobody needs it. If the parent was killed before the worker began to watch it, its end
// is never reported; but a live parent has a connection.
void followParent(Service& pService, process::ParentWatch& pParent)
{
    auto* tUnused = new QTimer(&pService);
    const auto tLook = [&pService, &pParent, tUnused] {
        if (pService.sockets().connectionCount() > 0) {
            return;
        }
        if (pParent.isGone()) {
            pService.lifetime().leave(::getppid());
        } else {
            tUnused->start(sUnusedMs);
        }
    };
    QObject::connect(tUnused, &QTimer::timeout, &pService, [&pService] {
        if (pService.sockets().connectionCount() == 0) {
            pService.lifetime().leave(::getppid());
        }
    });
    tLook();
    QObject::connect(&pParent, &process::ParentWatch::gone, &pService, tLook);
    QObject::connect(&pService.sockets(), &ipc::SocketServer::connectionClosed, &pService, tLook);
}

int run(const CommandLine& pLine, os::Descriptor pProcesses)
{
    const vkcore::GRef<ServiceApplication> tApp(new ServiceApplication(pLine.mForeground));
    if (!tApp->init()) {
        return 1;
    }
    process::SignalWatch tSignals;
    process::SystemdNotifier tSystemd;
    const ProcessSight tSight = chooseSight(std::move(pProcesses));
    Service tService(*tApp, {pLine.mSocketName, pLine.mWorker, tSight.mHelped.get()});
    std::unique_ptr<process::ParentWatch> tParent;
    if (pLine.mWorker) {
        tParent = std::make_unique<process::ParentWatch>();
        followParent(tService, *tParent);
    }
    QObject::connect(&tSignals, &process::SignalWatch::endRequested, &tService, [&] {
        tSystemd.stopping();
        if (pLine.mWorker) {
            tService.lifetime().leave(::getppid());
        } else {
            tService.lifetime().quit();
        }
    });
    QObject::connect(&tSignals, &process::SignalWatch::reloadRequested, &tService, [&] {
        tSystemd.reloading();
        (void)tService.configuration().reload(); // a failure is in the log
        tSystemd.ready(u"Ready"_s);
    });
    QObject::connect(&tService.lifetime(), &control::Lifetime::ended, tApp.get(),
                     [&] { tApp->requestQuit(0); });

    if (const Failure tFailure = tService.start()) {
        const QString tText = tFailure.mText + u'.';
        tApp->write(LogLevel::Error, tText);
        if (pLine.mForeground) {
            tApp->fatalError(tText);
        }
        return 1;
    }
    if (!tSight.mIsWhole) {
        tApp->write(LogLevel::Notice, u"The service sees only the programs of its own user: updates do not "
                                      "wait for those of others, nor keep old files that they use."_s);
    }
    tSystemd.ready(u"Ready"_s);
    const int tStatus = QCoreApplication::exec();
    tApp->write(LogLevel::Notice, u"The service has ended."_s);
    return tStatus;
}

} // namespace

int main(int argc, char* argv[])
{
    QStringList tArguments;
    for (int i = 1; i < argc; ++i) {
        tArguments.append(QString::fromLocal8Bit(argv[i]));
    }
    const CommandLine tLine = CommandLine::parse(tArguments);
    switch (tLine.mOrder) {
    case CommandLine::Order::Help:
        print(stdout, CommandLine::usage());
        return 0;
    case CommandLine::Order::Version:
        print(stdout, QStringLiteral("vkservice " VKSERVICE_VERSION "\n"));
        return 0;
    case CommandLine::Order::HandOver:
    case CommandLine::Order::HandBack:
        prepareProcess(false);
        return handOver(tLine.mOrder == CommandLine::Order::HandBack);
    case CommandLine::Order::Refuse:
        print(stderr, tLine.mComplaint + u'\n' + CommandLine::usage());
        return sWrongArgument;
    case CommandLine::Order::Run:
        break;
    }
    prepareProcess(tLine.mWorker);
    os::Descriptor tProcesses;
    if (const Failure tFailure = settleUser(tLine, &tProcesses)) {
        print(stderr, tFailure.mText + u".\n"_s);
        return 1;
    }
    QCoreApplication tQtApp(argc, argv);
    QCoreApplication::setApplicationName(u"vkservice"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(VKSERVICE_VERSION));
    return run(tLine, std::move(tProcesses));
}
