#include "ServiceRig.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <csignal>

ServiceRig::ServiceRig(const QByteArray& pServiceKeys) : mInstallation({QStringLiteral("vkservice")})
{
    configure(pServiceKeys);
}

void ServiceRig::configure(const QByteArray& pServiceKeys)
{
    const auto tBelow = [this](const char* pDir) { return mInstallation.path(QLatin1String(pDir)).toUtf8(); };
    mInstallation.writeFile(QStringLiteral("etc/vk/vk.cfg"),
                            "[application]\nlogDir = \"" + tBelow("log") +
                                "\"\nlanguage = \"en\"\n[service]\nstateDir = \"" + tBelow("state") +
                                "\"\ninstall.dir = \"" + tBelow("installed") + "\"\n" + pServiceKeys);
}

void ServiceRig::start(const QList<QByteArray>& pArguments)
{
    mProgram = startAnother(pArguments);
    RawPeer tProbe(socket());
    ASSERT_TRUE(tProbe.isConnected()) << "the service does not listen";
    ASSERT_EQ(tProbe.call(QStringLiteral("ping")), QJsonValue(true));
}

std::unique_ptr<Program> ServiceRig::startAnother(const QList<QByteArray>& pArguments) const
{
    return mInstallation.start(pArguments, Program::Console::Pipes, QStringLiteral("vkservice"));
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
    tPlace.addProgram(QStringLiteral(BUILD_DIR "/bin/vkpublish"), QStringLiteral("vkpublish"));
    mPublisher = &tPlace;
    QDir().mkpath(tPlace.path(QStringLiteral("package/bin")));
    ASSERT_TRUE(
        QFile::copy(QStringLiteral("/bin/sleep"), tPlace.path(QStringLiteral("package/bin/sleeper"))));
    publish({"init"});
    ASSERT_NO_FATAL_FAILURE(offer("1.0"));
    ASSERT_TRUE(QFile::copy(tPlace.path(QStringLiteral("repository/metadata/1.root.json")),
                            tPlace.path(QStringLiteral("etc/vk/root.json"))));
    pRig.configure("defaultServer = \"file://" + tPlace.path(QStringLiteral("repository")).toUtf8() + "\"\n");
}

void HeldUpdate::publish(QList<QByteArray> pArguments)
{
    pArguments.insert(1, mPublisher->path(QStringLiteral("repository")).toUtf8());
    const Program::Result tResult =
        mPublisher->start(pArguments, Program::Console::Pipes, QStringLiteral("vkpublish"))->wait();
    ASSERT_EQ(tResult.mStatus, 0) << tResult.mErr.toStdString();
}

void HeldUpdate::offer(const QByteArray& pVersion)
{
    publish({"add", mPublisher->path(QStringLiteral("package")).toUtf8(), "--name", "sleeper", "--version",
             pVersion, "--kind", "application", "--executable", "bin/sleeper"});
    publish({"publish"});
}

void HeldUpdate::hold()
{
    mApplication =
        std::make_unique<Program>(mPublisher->path(QStringLiteral("installed/current/sleeper/bin/sleeper")),
                                  QList<QByteArray>{"600"}, mPublisher->environment());
    ASSERT_NO_FATAL_FAILURE(offer("2.0"));
}
