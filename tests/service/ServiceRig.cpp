#include "ServiceRig.h"

#include <csignal>

ServiceRig::ServiceRig(const QByteArray& pServiceKeys) : mInstallation({q("vkservice")})
{
    configure(pServiceKeys);
}

void ServiceRig::configure(const QByteArray& pServiceKeys)
{
    const auto tBelow = [this](const char* pDir) { return mInstallation.path(pDir).toUtf8(); };
    const QByteArray tSocket = pServiceKeys.contains("socketName") ? "" : "socketName = \"vkservice\"\n";
    mInstallation.writeFile("etc/vk/vk.cfg", "[application]\nlogDir = \"" + tBelow("log") +
                                                 "\"\nlanguage = \"en\"\n[service]\nstateDir = \"" +
                                                 tBelow("state") + "\"\ninstall.dir = \"" +
                                                 tBelow("installed") + "\"\n" + tSocket + pServiceKeys);
}

void ServiceRig::start(const QList<QByteArray>& pArguments)
{
    mProgram = startAnother(pArguments);
    RawPeer tProbe(socket());
    ASSERT_TRUE(tProbe.isConnected()) << "the service does not listen";
    ASSERT_EQ(tProbe.call("ping"), true);
}

std::unique_ptr<Program> ServiceRig::startAnother(const QList<QByteArray>& pArguments) const
{
    return mInstallation.start(pArguments, Program::Console::Pipes, q("vkservice"));
}

int ServiceRig::stop()
{
    mProgram->signal(SIGTERM);
    return mProgram->wait().mStatus;
}

void ServiceRig::killAndRestart()
{
    mProgram->signal(SIGKILL);
    EXPECT_EQ(mProgram->wait().mSignal, SIGKILL);
    ASSERT_NO_FATAL_FAILURE(start());
}

void HeldUpdate::prepare(ServiceRig& pRig)
{
    Installation& tPlace = pRig.installation();
    tPlace.addProgram(BUILD_DIR "/bin/vkpublish", "vkpublish");
    mPublisher = &tPlace;
    tPlace.writeFile(q("advisory.txt"), "CVE-2026-1: it never woke up\n");
    QDir().mkpath(tPlace.path("package/bin"));
    ASSERT_TRUE(QFile::copy(q("/bin/sleep"), tPlace.path("package/bin/sleeper")));
    tPlace.publish({"init", "--no-passphrase"});
    ASSERT_NO_FATAL_FAILURE(offer("1.0"));
    ASSERT_TRUE(QFile::copy(tPlace.path("repository/metadata/1.root.json"), tPlace.path("etc/vk/root.json")));
    pRig.configure("defaultServer = \"file://" + tPlace.path("repository").toUtf8() + "\"\n");
}

void HeldUpdate::offer(const QByteArray& pVersion)
{
    mPublisher->publish({"add", mPublisher->path("package").toUtf8(), "--name", "sleeper", "--version",
                         pVersion, "--kind", "application", "--executable", "bin/sleeper", "--title",
                         "en=sleeper", "--title",
                         "de=Schl\xc3\xa4"
                         "fer",
                         "--attach", "advisory=" + mPublisher->path("advisory.txt").toUtf8()});
    mPublisher->publish({"publish"});
}

void HeldUpdate::hold()
{
    mApplication = std::make_unique<Program>(mPublisher->path("installed/current/sleeper/bin/sleeper"),
                                             QList<QByteArray>{"600"}, mPublisher->environment());
    ASSERT_NO_FATAL_FAILURE(offer("2.0"));
}
