#include "internal/Protocol.h"
#include "internal/Fields.h"
#include "internal/LineBuffer.h"
#include "internal/Values.h"
#include "Test.h"

using namespace tarn::vkcore;
using namespace tarn::vkcore::protocol;

namespace {

template <typename T>
bool reads(const QByteArray& pJson)
{
    QString tFault;
    JsonReader tReader(QJsonDocument::fromJson(pJson).object(), &tFault);
    T tValue{};
    read(tReader, "v", &tValue);
    return tReader.ok();
}

} // namespace

TEST(LineBufferTest, TheLongestLineAndOneByteMore)
{
    LineBuffer tBuffer;
    tBuffer.append("first\n" + QByteArray(sMaxLine, 'x') + "\nlast\n");
    EXPECT_EQ(tBuffer.takeLine(), QByteArray("first"));
    EXPECT_EQ(tBuffer.takeLine()->size(), sMaxLine);
    EXPECT_EQ(tBuffer.takeLine(), QByteArray("last"));
    EXPECT_FALSE(tBuffer.tooLong());

    for (const char* tRest : {"", "\n"}) {
        LineBuffer tLong;
        tLong.append("first\n" + QByteArray(sMaxLine + 1, 'x') + tRest);
        EXPECT_EQ(tLong.takeLine(), QByteArray("first"));
        EXPECT_FALSE(tLong.takeLine());
        EXPECT_TRUE(tLong.tooLong());
        tLong.append("more\n");
        EXPECT_FALSE(tLong.takeLine());
    }
}

TEST(ProtocolTest, NestingAndNumber)
{
    const struct
    {
        QByteArray mLine;
        bool mTooDeep;
    } tCases[] = {
        {"{}", false},
        {QByteArray(64, '[') + QByteArray(64, ']'), false},
        {QByteArray(65, '[') + QByteArray(65, ']'), true},
        {QByteArray(65, '{'), true},
        {"{\"a\":\"" + QByteArray(100, '[') + "\"}", false},
        {"{\"a\":\"\\\"" + QByteArray(100, '[') + "\"}", false},
        {"{\"a\":\"\\\\\"," + QByteArray(100, '['), true},
        {QByteArray("[]").repeated(250'000), false},
        {QByteArray("{}").repeated(250'001), true},
        {QByteArray(100, ']') + QByteArray(65, '['), false},
        {"\"\\", false},
        {"", false},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mLine.left(80));
        EXPECT_EQ(isTooComplex(tCase.mLine), tCase.mTooDeep);
    }
}

TEST(ProtocolTest, ReadersAreStrict)
{
    const struct
    {
        bool (*mReads)(const QByteArray&);
        QList<QByteArray> mGood;
        QList<QByteArray> mBad;
    } tCases[] = {
        {reads<bool>, {"true", "false"}, {"0", "1", "\"true\"", "null", "{}", "[]"}},
        {reads<int>,
         {"-0", "1.0", "2147483647", "-2147483648", "1e3"},
         {"2147483648", "-2147483649", "1.5", "1e300", "\"1\"", "true", "null", "[1]",
          "9223372036854775808"}},
        {reads<long long>,
         {"9223372036854775807", "-9223372036854775808", "9007199254740993"},
         {"9223372036854775808", "0.1", "\"1\"", "null"}},
        {reads<QString>, {"\"\"", "\"x\"", "null"}, {"0", "true", "{}", "[\"x\"]"}},
        {reads<QDateTime>,
         {"null", "\"2024-02-29T23:59:59\"", "\"0001-01-01T00:00:00\"", "\"9999-12-31T23:59:59\""},
         {"\"\"", "\"2023-02-29T00:00:00\"", "\"2024-01-01T24:00:00\"", "\"2024-01-01 00:00:00\"",
          "\"2024-01-01T00:00:00Z\"", "\"2024-1-1T0:0:0\"", "\"12024-01-01T00:00:00\"",
          "\" 024-01-01T00:00:00\"", "\"\xd9\xa1\xd9\xa1\xd9\xa1\xd9\xa1-01-01T00:00:00\"", "0", "true"}},
    };
    for (const auto& tCase : tCases) {
        for (const QByteArray& tValue : tCase.mGood) {
            EXPECT_TRUE(tCase.mReads("{\"v\":" + tValue + "}")) << tValue;
        }
        for (const QByteArray& tValue : tCase.mBad) {
            EXPECT_FALSE(tCase.mReads("{\"v\":" + tValue + "}")) << tValue;
        }
        EXPECT_FALSE(tCase.mReads("{\"w\":0}"));
    }
}

TEST(ProtocolTest, TheFirstFaultHasItsPath)
{
    const QByteArray tServer =
        R"({"name":"","uri":"","userName":null,"enabled":true,"default":false,"savePassword":false})";
    const std::pair<QByteArray, const char*> tCases[] = {
        {R"({"revision":1,"servers":[)" + tServer + "]}", ""},
        {R"({"servers":[)" + tServer + ',' + QByteArray(tServer).replace(R"("uri":"")", R"("uri":1)") + "]}",
         "servers[1].uri is not a text"},
        {R"({"servers":[)" + QByteArray(tServer).replace("true", "1").replace("null", "2") + "]}",
         "servers[0].userName is not a text"},
        {R"({"servers":[7,8]})", "servers[0] is not an object"},
        {R"({"servers":{}})", "servers is not an array"},
        {"{}", "servers is missing"},
        {"[]", "it is not an object"},
    };
    for (const auto& [tJson, tExpected] : tCases) {
        const QJsonDocument tDocument = QJsonDocument::fromJson(tJson);
        QString tFault;
        const auto tList = fromJson<ServerEntries>(
            tDocument.isArray() ? QJsonValue(tDocument.array()) : QJsonValue(tDocument.object()), &tFault);
        EXPECT_EQ(tFault, q(tExpected));
        EXPECT_EQ(tList.has_value(), tFault.isNull());
        EXPECT_TRUE(!tList || toJson(*tList) == tDocument.object()) << tJson;
    }
}
