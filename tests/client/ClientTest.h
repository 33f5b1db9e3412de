#pragma once

#include "Installation.h"
#include "ScriptedService.h"
#include "Test.h"

// rkm in an installation of its own, beside a service that does as it is told.
class ClientTest : public testing::Test
{
protected:
    Installation mInstallation;
    ScriptedService mService{mInstallation.socketPath()};
};

// Something that a service does other than an idle one.
using Script = ScriptedService::Script;

inline Script answers(const char* pMethod, const QByteArray& pResult)
{
    return [=](ScriptedService& pService) { pService.answer(pMethod, pResult); };
}

inline Script refuses(const char* pMethod)
{
    return [=](ScriptedService& pService) { pService.refuse(pMethod); };
}

// One run of rkm against a service of its own, and what has to come of it.
struct Case
{
    Case(const QList<QByteArray>& pArguments, const QByteArray& pOut, const QByteArray& pErr, int pStatus,
         const QList<QByteArray>& pCalls = {}, const QList<Script>& pScripts = {},
         const QByteArray& pInput = {})
        : mArguments(pArguments), mOut(pOut), mErr(pErr), mStatus(pStatus), mCalls(pCalls),
          mScripts(pScripts), mInput(pInput)
    {
    }

    QList<QByteArray> mArguments;
    QByteArray mOut;
    QByteArray mErr;
    int mStatus;
    QList<QByteArray> mCalls; // as ScriptedService::calls
    QList<Script> mScripts;
    QByteArray mInput;
};

inline Case ok(const QList<QByteArray>& pArguments, const QByteArray& pOut,
               const QList<QByteArray>& pCalls = {}, const QList<Script>& pScripts = {},
               const QByteArray& pInput = {})
{
    return Case(pArguments, pOut, "", 0, pCalls, pScripts, pInput);
}

inline Case fails(const QList<QByteArray>& pArguments, const QByteArray& pErr,
                  const QList<QByteArray>& pCalls = {}, const QList<Script>& pScripts = {})
{
    return Case(pArguments, "", pErr, 1, pCalls, pScripts);
}

inline QByteArray text(const QStringList& pLines)
{
    return pLines.join(u'\n').toUtf8();
}

// pLine: where the test expects it.
inline void expectResult(const Program::Result& pResult, const QByteArray& pOut, const QByteArray& pErr,
                         int pStatus, int pLine = __builtin_LINE())
{
    EXPECT_EQ(pResult.mOut, pOut) << "line " << pLine;
    EXPECT_EQ(pResult.mErr, pErr) << "line " << pLine;
    EXPECT_EQ(pResult.mStatus, pStatus) << "line " << pLine;
}

inline void checkCase(const Case& pCase)
{
    SCOPED_TRACE("rkm " + pCase.mArguments.join(' ').left(200).toStdString());
    const Installation tInstallation;
    ScriptedService tService(tInstallation.socketPath());
    for (const Script& tScript : pCase.mScripts) {
        tScript(tService);
    }
    const Program::Result tResult = tInstallation.run(pCase.mArguments, pCase.mInput);
    EXPECT_FALSE(tResult.mTimedOut);
    expectResult(tResult, pCase.mOut, pCase.mErr, pCase.mStatus);
    EXPECT_EQ(text(tService.calls()), pCase.mCalls.join('\n'));
}

inline void check(const QList<Case>& pCases)
{
    for (const Case& tCase : pCases) {
        checkCase(tCase);
    }
}

// The calls with which every changing command begins, and more.
inline QList<QByteArray> guarded(const QList<QByteArray>& pCalls)
{
    return QList<QByteArray>{"isServiceActive", "isVKClientActive"} + pCalls;
}

// What a changing command does before it changes anything; pArguments are those of one that is in order.
inline void checkGuards(const QList<QByteArray>& pArguments)
{
    const QByteArray tRefusal = "Cannot update settings while the ";
    check({
        fails(pArguments, tRefusal + "service is active.\n", {"isServiceActive"},
              {answers("isServiceActive", "true"), answers("isVKClientActive", "true")}),
        fails(pArguments, tRefusal + "wizard is active.\n", guarded({}),
              {answers("isVKClientActive", "true")}),
    });
}

inline const QByteArray sApplied = "The changes were successfully applied.\n";
