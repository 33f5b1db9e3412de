#include "ServiceRig.h"

namespace {

constexpr int sParseError = -32700;
constexpr int sInvalidRequest = -32600;
constexpr int sInvalidParams = -32602;

QByteArray request(const QByteArray& pRest)
{
    return R"({"jsonrpc":"2.0",)" + pRest + "}\n";
}

} // namespace

// Each on its own connection; the service keeps serving all others.
TEST_F(ServiceTest, LinesThatBreakTheRules)
{
    mRig.start();
    const QByteArray tPing = R"("method":"ping","params":{})";
    const struct
    {
        const char* mWhat;
        QByteArray mLine;
        int mError;
        bool mEnds; // the connection
        bool mHasId = false;
    } tCases[] = {
        {"an empty line", "\n", sParseError, true},
        {"bytes that are no text", QByteArray("{\"a\": \"\xff\xfe\"}\n"), sParseError, true},
        {"a batch", '[' + request(R"("id":1,)" + tPing).chopped(1) + "]\n", sInvalidRequest, true},
        {"too deep", request(R"("id":1,"method":"ping","params":{"a":)" + QByteArray(70, '[')),
         sInvalidRequest, true},
        {"too long", QByteArray(8 * 1024 * 1024 + 1, 'x') + '\n', sInvalidRequest, true},
        {"id of text", request(R"("id":"1",)" + tPing), sInvalidRequest, false},
        {"id not whole", request(R"("id":1.5,)" + tPing), sInvalidRequest, false},
        {"no version", R"({"id":7,"method":"ping","params":{}})" + QByteArray("\n"), sInvalidRequest, false,
         true},
        {"method no text", request(R"("id":7,"method":1,"params":{})"), sInvalidRequest, false, true},
        {"no params", request(R"("id":7,"method":"ping")"), sInvalidParams, false, true},
        {"params a list", request(R"("id":7,"method":"ping","params":[])"), sInvalidParams, false, true},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mWhat);
        RawPeer tPeer = mRig.connect();
        tPeer.send(tCase.mLine);
        const QJsonObject tAnswer = Json(tPeer.readLine().value_or(QByteArray()));
        EXPECT_EQ(tAnswer.value(q("error"))[q("code")].toInt(), tCase.mError);
        EXPECT_EQ(tAnswer.value(q("id")), tCase.mHasId ? QJsonValue(7) : QJsonValue());
        if (tCase.mEnds) {
            EXPECT_TRUE(tPeer.waitForEnd());
        } else {
            EXPECT_EQ(tPeer.call("ping"), true);
        }
    }
}

TEST_F(ServiceTest, AnswersComeInOrderHoweverTheBytesAreCut)
{
    RawPeer tPeer = mRig.startAndConnect();
    QByteArray tRequests;
    for (int i = 0; i < 500; ++i) {
        tRequests += request(
            "\"id\":" + QByteArray::number(i) +
            (i % 2 == 0 ? R"(,"method":"ping","params":{})" : R"(,"method":"getServerList","params":{})"));
    }
    for (qsizetype tAt = 0; tAt < tRequests.size();) {
        const qsizetype tCount = 1 + (tAt * 31) % 777;
        ASSERT_TRUE(tPeer.send(tRequests.mid(tAt, tCount)));
        tAt += tCount;
    }
    for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(Json(tPeer.readLine().value_or(QByteArray())).value(q("id")).toInt(-1), i);
    }
    for (int i = 0; i < 50; ++i) { // peers that disconnect without reading their answers
        mRig.connect().send(tRequests);
    }
    EXPECT_EQ(tPeer.call("ping"), true);
}
