#pragma once

#include <sqlite3.h>

// A file layer for SQLite in which one operation, counted from 1, fails with a code, for the lifetime of the
// object.
class FaultyVfs
{
public:
    FaultyVfs()
    {
        sReal = sqlite3_vfs_find(nullptr);
        sMine = *sReal;
        sMine.zName = "faulty";
        sMine.xOpen = [](sqlite3_vfs*, const char* pName, sqlite3_file* pFile, int pFlags, int* pOut) {
            pFile->pMethods = nullptr;
            const int tFault = fault();
            const int tResult = tFault != 0 ? tFault : sReal->xOpen(sReal, pName, pFile, pFlags, pOut);
            if (tResult == SQLITE_OK) {
                (pFlags & SQLITE_OPEN_MAIN_DB) != 0 ? replaceMethods<true>(pFile)
                                                    : replaceMethods<false>(pFile);
            }
            return tResult;
        };
        sqlite3_vfs_register(&sMine, 1);
        failAt(0, 0);
    }
    ~FaultyVfs()
    {
        sqlite3_vfs_unregister(&sMine);
        sqlite3_vfs_register(sReal, 1);
    }
    static void failAt(int pOperation, int pCode)
    {
        sFailAt = pOperation;
        sCode = pCode;
        sCount = 0;
    }
    static bool hasFailed() { return sCount >= sFailAt; }

private:
    static int fault() { return ++sCount == sFailAt ? sCode : 0; }
    template <bool tMain, auto tMember, typename... Args>
    static int call(sqlite3_file* pFile, Args... pArgs)
    {
        const int tFault = fault();
        return tFault != 0 ? tFault : (sMethods[tMain].*tMember)(pFile, pArgs...);
    }
    // The database has other methods than its journal files.
    template <bool tMain>
    static void replaceMethods(sqlite3_file* pFile)
    {
        using Methods = sqlite3_io_methods;
        static Methods sFaulty;
        sMethods[tMain] = sFaulty = *pFile->pMethods;
        sFaulty.xRead = &call<tMain, &Methods::xRead, void*, int, sqlite3_int64>;
        sFaulty.xFileSize = &call<tMain, &Methods::xFileSize, sqlite3_int64*>;
        sFaulty.xLock = &call<tMain, &Methods::xLock, int>;
        sFaulty.xShmMap = &call<tMain, &Methods::xShmMap, int, int, int, void volatile**>;
        sFaulty.xShmLock = &call<tMain, &Methods::xShmLock, int, int, int>;
        pFile->pMethods = &sFaulty;
    }

    static inline sqlite3_vfs* sReal;
    static inline sqlite3_vfs sMine;
    static inline sqlite3_io_methods sMethods[2];
    static inline int sFailAt;
    static inline int sCode;
    static inline int sCount;
};
