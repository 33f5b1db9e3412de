// Keys that are not in files of vkpublish: the built program, the examples for --sign-with, and what they
// use.
#include "Publisher.h"

#include <sys/stat.h>

namespace {

const char* const sModule = "/usr/lib/softhsm/libsofthsm2.so";

class SignersTest : public PublisherTest
{
protected:
    SignersTest()
    {
        write("softhsm.conf", "directories.tokendir = " + at("tokens") + "\nobjectstore.backend = file\n");
        write("pass", "correct horse\n");
        write("pin", "1234\n");
        ::chmod(at("pass").constData(), 0600);
        QDir().mkpath(path("tokens"));
        mEnvironment = {{"PATH", "/usr/bin:/bin"},
                        {"LC_ALL", "C.UTF-8"},
                        {"TMPDIR", "/tmp"},
                        {"SOFTHSM2_CONF", at("softhsm.conf")},
                        {"SSH_AUTH_SOCK", at("agent")}};
        succeed("init @r --no-passphrase");
        succeed("publish @r");
    }

    QByteArray at(const char* pBelow) const { return path(pBelow).toUtf8(); }

    // Words as for PublisherTest::run(), after the program.
    Program::Result call(const QByteArray& pWords) const
    {
        QByteArrayList tWords = pWords.split(' ');
        for (QByteArray& tWord : tWords) {
            tWord = tWord.startsWith('@') ? at(tWord.mid(1).constData()) : tWord;
        }
        return Program(q(tWords.takeFirst()), tWords, mEnvironment).wait();
    }

    Program::Result rotate(const char* pRole, const QByteArray& pCommand) const
    {
        return Program(q(VKPUBLISH),
                       {"rotate-key", at("r"), pRole, "--sign-with", pCommand, "--public", at("public.pem")},
                       mEnvironment)
            .wait();
    }
    Program::Result publish() const
    {
        return Program(q(VKPUBLISH), {"publish", at("r")}, mEnvironment).wait();
    }

    // Gives all roles keys that pCommand signs with, and takes them away with pBreak.
    void use(const QByteArray& pPublic, const QByteArray& pCommand, const std::function<void()>& pBreak)
    {
        const Program::Result tPublic = call(pPublic);
        ASSERT_EQ(tPublic.mStatus, 0) << tPublic.mErr;
        write("public.pem", tPublic.mOut);
        const QByteArray tCommand = QByteArray(pCommand).replace("@", mDir.path().toUtf8() + '/');
        for (const char* tRole : {"targets", "timestamp"}) {
            const Program::Result tRotated = rotate(tRole, tCommand);
            ASSERT_EQ(tRotated.mStatus, 0) << tRotated.mErr;
        }
        EXPECT_EQ(followAsClient(), QString());
        succeed("add @r @f --name viewer --version 1");
        const Program::Result tPublished = publish();
        EXPECT_EQ(tPublished.mStatus, 0) << tPublished.mErr;
        EXPECT_EQ(followAsClient(), q("viewer-1.0.0.0.tar.zst"));
        pBreak();
        succeed("remove @r viewer");
        const auto tBefore = state();
        const Program::Result tBroken = publish();
        EXPECT_EQ(tBroken.mStatus, 1);
        EXPECT_EQ(tBroken.mErr.count("vkpublish: The command /"), 1) << tBroken.mErr;
        EXPECT_EQ(state(), tBefore);
    }
};

TEST_F(SignersTest, AreTokens)
{
    ASSERT_EQ(call("/usr/bin/softhsm2-util --init-token --free --label t --pin 1234 --so-pin 5678").mStatus,
              0);
    const QByteArray tTool =
        QByteArray("/usr/bin/pkcs11-tool --token-label t --login --pin 1234 --module ") + sModule;
    ASSERT_EQ(call(tTool + " --keypairgen --key-type EC:prime256v1 --id 01").mStatus, 0);
    const QByteArray tExample = QByteArray(SIGNERS "/sign-with-token -t t -i 01 -m ") + sModule;
    use(tExample + " -P", tExample + " -p @pin",
        [this] { QDir().rename(path("tokens"), path("unplugged")); });
}

TEST_F(SignersTest, AreKeysOfSshAgent)
{
    ASSERT_EQ(call("/usr/bin/ssh-keygen -q -t ed25519 -f @id -C release -N ").mStatus, 0);
    auto tAgent = std::make_unique<Program>(q("/usr/bin/ssh-agent"), QByteArrayList{"-D", "-a", at("agent")},
                                            mEnvironment);
    ASSERT_TRUE(tAgent->waitForOutput("SSH_AUTH_SOCK"));
    ASSERT_EQ(call("/usr/bin/ssh-add -q @id").mStatus, 0);
    const QByteArray tExample = SIGNERS "/sign-with-ssh-agent ";
    use(tExample + "--pem @id.pub", tExample + "@id.pub", [&] { tAgent.reset(); });
}

TEST_F(SignersTest, AreKeysOfOpenSsl)
{
    const QByteArray tMake = "/usr/bin/openssl genpkey -aes-256-cbc -pass file:" + at("pass");
    ASSERT_EQ(call(tMake + " -out @ec -algorithm EC -pkeyopt ec_paramgen_curve:P-256").mStatus, 0);
    ASSERT_EQ(call(tMake + " -out @ed -algorithm ed25519").mStatus, 0);
    const QByteArray tExample = SIGNERS "/sign-with-openssl ";
    write("public.pem", call(tExample + "-P @ec @pass").mOut);
    const Program::Result tRotated = rotate("snapshot", tExample + at("ec ") + at("pass"));
    EXPECT_EQ(tRotated.mStatus, 0) << tRotated.mErr;
    use(tExample + "-P @ed @pass", tExample + "@ed @pass", [this] { write("pass", "battery staple\n"); });
}

// The list of packages is signed already when the timestamp can't be.
TEST_F(SignersTest, AreGoneInTheMiddle)
{
    QDir().mkpath(path("token"));
    ASSERT_EQ(call("/usr/bin/openssl genpkey -algorithm ed25519 -out @token/key").mStatus, 0);
    write("public.pem", call("/usr/bin/openssl pkey -pubout -in @token/key").mOut);
    write("sign", "#!/bin/sh\n" SIGNERS "/sign-with-openssl " + at("token/key") + " || exit 1\n" + "[ ! -e " +
                      at("armed") + " ] || rm -r " + at("token") + "\n");
    ::chmod(at("sign").constData(), 0700);
    for (const char* tRole : {"targets", "timestamp"}) {
        ASSERT_EQ(rotate(tRole, at("sign")).mStatus, 0);
    }
    succeed("add @r @f --name viewer --version 1");
    const auto tBefore = state();
    write("armed", "");
    const Program::Result tBroken = publish();
    EXPECT_EQ(tBroken.mStatus, 1);
    EXPECT_EQ(tBroken.mErr.count("vkpublish: "), 1) << tBroken.mErr;
    EXPECT_FALSE(QFile::exists(path("token")));
    EXPECT_EQ(state(), tBefore);
}

// Like a program that asks for a PIN.
TEST_F(SignersTest, HaveTheTerminal)
{
    ASSERT_EQ(call("/usr/bin/openssl genpkey -algorithm ed25519 -out @key.pem -aes-256-cbc -pass pass:horse")
                  .mStatus,
              0);
    write("public.pem", call("/usr/bin/openssl pkey -pubout -in @key.pem -passin pass:horse").mOut);
    Program tRotate(q(VKPUBLISH),
                    {"rotate-key", at("r"), "snapshot", "--public", at("public.pem"), "--sign-with",
                     SIGNERS "/sign-with-openssl " + at("key.pem")},
                    mEnvironment, Program::Console::Terminal);
    for (const int tTime : {1, 2}) { // for a trial and for the snapshot
        ASSERT_TRUE(tRotate.waitForOutput("Enter pass", tTime)) << tRotate.output();
        tRotate.write("horse\n");
    }
    const Program::Result tResult = tRotate.wait();
    EXPECT_EQ(tResult.mStatus, 0) << tResult.mOut;
    EXPECT_TRUE(tResult.mEchoes);
    EXPECT_EQ(followAsClient(), QString());
}

TEST_F(SignersTest, TakeOverAKeyThatARoleHas)
{
    const QString tRoot = files("r.keys").filter(q("root-")).first();
    const QByteArray tId = tRoot.sliced(5, 16).toUtf8();
    QFile::rename(path("r.keys/") + tRoot, path("usb.pem"));
    const auto tSet = [this](const QByteArray& pId, const char* pKey) {
        return Program(
                   q(VKPUBLISH),
                   {"key", "signer", at("r"), pId, "--sign-with", SIGNERS "/sign-with-openssl " + at(pKey)},
                   mEnvironment)
            .wait();
    };
    const auto tBefore = state();
    EXPECT_TRUE(tSet("0123456789", "usb.pem").mErr.contains("no key"));
    write("r.keys/other", readFile(path("r.keys/") + files("r.keys").filter(q("targets-")).first()));
    EXPECT_TRUE(tSet(tId, "r.keys/other").mErr.contains("no signature of it"));
    QFile::remove(path("r.keys/other"));
    EXPECT_EQ(state(), tBefore);
    const Program::Result tDone = tSet(tId, "usb.pem");
    ASSERT_EQ(tDone.mStatus, 0) << tDone.mErr;
    succeed("rotate-key @r timestamp --no-passphrase");
    EXPECT_TRUE(files("r/metadata").contains(q("2.root.json")));
    EXPECT_EQ(followAsClient(), QString());
}

TEST_F(SignersTest, SignOnAMachineWithoutTheRepository)
{
    ASSERT_EQ(call("/usr/bin/openssl genpkey -algorithm ed25519 -out @a").mStatus, 0);
    write("public.pem", call("/usr/bin/openssl pkey -pubout -in @a").mOut);
    const auto tMake = [this](const char* pFile) {
        return Program(q(VKPUBLISH),
                       {"key", "make", at(pFile), "--public", at("public.pem"), "--sign-with",
                        SIGNERS "/sign-with-openssl " + at("a")},
                       mEnvironment)
            .wait();
    };
    EXPECT_EQ(tMake("alice.pem").mStatus, 2);
    const Program::Result tMade = tMake("alice.signer");
    ASSERT_EQ(tMade.mStatus, 0) << tMade.mErr;
    succeed("key add @r root --public @alice.signer.pub");
    succeed("key threshold @r root 2");
    succeed("payload @r root --output @payload");
    succeed("sign @payload --key @alice.signer --output @signature --yes");
    succeed("add-signature @r root @signature");
    succeed("publish @r");
    EXPECT_TRUE(files("r/metadata").contains(q("2.root.json")));
    EXPECT_EQ(followAsClient(), QString());
}

TEST_F(SignersTest, AreRefusedIfTheyDoNotSign)
{
    for (const char* tName : {"a", "b"}) {
        ASSERT_EQ(call(QByteArray("/usr/bin/openssl genpkey -algorithm ed25519 -out @") + tName).mStatus, 0);
    }
    write("public.pem", call("/usr/bin/openssl pkey -pubout -in @a").mOut);
    const QByteArray tExample = SIGNERS "/sign-with-openssl ";
    const std::tuple<QByteArray, int, const char*> sCases[] = {
        {tExample + at("b"), 1, "is no signature of it"},
        {"echo nonsense", 1, "is no signature of it"},
        {tExample + at("none"), 1, "ended with status 1"},
        {"false --pin 1234", 1, "The command false ended with status 1"},
        {"no-such-program", 1, "can't be started"},
        {"./sign", 1, "whole path"},
        {"sign 'a", 2, "quotes"},
    };
    const auto tBefore = state();
    for (const auto& [tCommand, tStatus, tSays] : sCases) {
        const Program::Result tResult = rotate("targets", tCommand);
        EXPECT_EQ(tResult.mStatus, tStatus) << tCommand;
        EXPECT_TRUE(tResult.mErr.contains(tSays)) << tResult.mErr;
        EXPECT_FALSE(tResult.mErr.contains("1234"));
        EXPECT_EQ(state(), tBefore) << tCommand;
    }
    write("public.pem", readFile(path("a")));
    EXPECT_TRUE(rotate("targets", tExample + at("a")).mErr.contains("public key"));
}

} // namespace
