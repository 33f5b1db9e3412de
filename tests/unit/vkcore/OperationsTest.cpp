#include "ClientQueries.h"
#include "RawPeer.h"
#include "ScriptedService.h"
#include "Test.h"
#include "TestApplication.h"

using namespace tarn::vkcore;
using namespace tarn::test;

// The tests of rkm cover its calls and their results. Here are broken answers of each shape, and calls that
// only other clients make.

namespace {

class OperationsTest : public testing::Test
{
protected:
    void SetUp() override { mClient.setServerName(mApp->path(q("service"))); }

    GRef<TestApplication> mApp{new TestApplication};
    ScriptedService mService{mApp->path(q("service"))};
    IPCClient mClient{mApp.get(), nullptr};
};

} // namespace

TEST_F(OperationsTest, ReadAnswersWholeOrNotAtAll)
{
    for (const ClientQuery& tQuery : sClientQueries) {
        mService.answer(tQuery.mMethod, tQuery.mAnswer);
        EXPECT_EQ(tQuery.mCall(mClient), q(tQuery.mGives)) << tQuery.mMethod;
        // In turn, each member of the object is missing or of another type.
        QJsonArray tWrong{1.5, QJsonArray(), QJsonObject()};
        const Json tGood(tQuery.mAnswer);
        for (const QString& tKey : tGood.keys()) {
            QJsonObject tBad = tGood;
            tBad.remove(tKey);
            tWrong.append(tBad);
            tBad.insert(tKey, QJsonArray{QJsonArray()});
            if (tKey != q("revision")) {
                tWrong.append(tBad);
            }
        }
        for (const QJsonValue tValue : std::as_const(tWrong)) {
            const QByteArray tAnswer = QJsonDocument(QJsonArray{tValue}).toJson(QJsonDocument::Compact);
            mService.answer(tQuery.mMethod, tAnswer.mid(1).chopped(1));
            EXPECT_EQ(tQuery.mCall(mClient), q("failed")) << tQuery.mMethod << tAnswer;
        }
    }
}

TEST_F(OperationsTest, TheRevisionOfTheListGoesWithItsPositions)
{
    const GRef<Server> tServer(new Server(nullptr));
    tServer->setName(q("n"));
    EXPECT_TRUE(mClient.removeServer(0));
    mService.answer("getServerList", R"({"revision":"r-8","servers":[]})");
    EXPECT_EQ(serverNames(mClient), q(""));
    EXPECT_TRUE(mClient.changeServer(1, tServer.get()));
    EXPECT_EQ(mService.calls().value(0), q(R"(removeServer {"index":0})"));
    EXPECT_TRUE(
        mService.calls().last().startsWith(q(R"(changeServer {"index":1,"revision":"r-8","server":{)")));
}
