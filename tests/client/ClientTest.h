#pragma once

#include "Installation.h"
#include "ScriptedService.h"
#include "Test.h"
#include "UnixSocket.h"

// rkm in a private installation with a scripted service.
class ClientTest : public testing::Test
{
protected:
    Installation mInstallation;
    ScriptedService mService{mInstallation.socketPath()};
};

// Something that the service does differently from an idle one.
using Script = ScriptedService::Script;

inline Script answers(const char* pMethod, const QByteArray& pResult)
{
    return [=](ScriptedService& pService) { pService.answer(pMethod, pResult); };
}

inline Script refuses(const char* pMethod)
{
    return [=](ScriptedService& pService) { pService.refuse(pMethod); };
}

// Arguments, also given as one text if none of them contains a space.
class Words : public QList<QByteArray>
{
public:
    Words(const char* pWords) : Words(QByteArray(pWords).split(' ')) {}
    Words(std::initializer_list<QByteArray> pWords) : QList(pWords) {}
    Words(const QList<QByteArray>& pWords) : QList(pWords) {}
};

// One run of rkm against a scripted service, with the expected results.
struct Case
{
    Words mArguments;
    QByteArray mOut;
    QByteArray mErr;
    int mStatus;
    QList<QByteArray> mCalls = {}; // as ScriptedService::calls
    QList<Script> mScripts = {};
    QByteArray mInput = {};
};

inline Case ok(const Words& pArguments, const QByteArray& pOut, const QList<QByteArray>& pCalls = {},
               const QList<Script>& pScripts = {}, const QByteArray& pInput = {})
{
    return {pArguments, pOut, "", 0, pCalls, pScripts, pInput};
}

inline Case fails(const Words& pArguments, const QByteArray& pErr, const QList<QByteArray>& pCalls = {},
                  const QList<Script>& pScripts = {})
{
    return {pArguments, "", pErr, 1, pCalls, pScripts};
}

inline QByteArray text(const QStringList& pLines)
{
    return pLines.join(u'\n').toUtf8();
}

// pLine: of the expectation in the test.
inline void expectResult(const Program::Result& pResult, const QByteArray& pOut, const QByteArray& pErr,
                         int pStatus, int pLine = __builtin_LINE())
{
    EXPECT_EQ(pResult.mOut, pOut) << "line " << pLine;
    EXPECT_EQ(pResult.mErr, pErr) << "line " << pLine;
    EXPECT_EQ(pResult.mStatus, pStatus) << "line " << pLine;
}

inline void check(const QList<Case>& pCases)
{
    for (const Case& tCase : pCases) {
        SCOPED_TRACE("rkm " + tCase.mArguments.join(' ').left(200).toStdString());
        const Installation tInstallation;
        ScriptedService tService(tInstallation.socketPath());
        for (const Script& tScript : tCase.mScripts) {
            tScript(tService);
        }
        const Program::Result tResult = tInstallation.run(tCase.mArguments, tCase.mInput);
        EXPECT_FALSE(tResult.mTimedOut);
        expectResult(tResult, tCase.mOut, tCase.mErr, tCase.mStatus);
        EXPECT_EQ(text(tService.calls()), tCase.mCalls.join('\n'));
    }
}

// The calls at the start of every changing command, and more.
inline QList<QByteArray> guarded(const QList<QByteArray>& pCalls)
{
    return QList<QByteArray>{"isServiceActive", "isVKClientActive"} + pCalls;
}

inline const QByteArray sApplied = "The changes were successfully applied.\n";
