// Reads the rows of the last month from an install log through SQLite's C interface and prints a line for
// each column: the baseline for install-log. With "flush" it flushes each line, as install-log does.
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv)
{
    sqlite3* tDatabase = nullptr;
    sqlite3_stmt* tQuery = nullptr;
    const bool tFlush = argc == 5 && std::strcmp(argv[4], "flush") == 0;
    if ((argc != 4 && !tFlush) ||
        sqlite3_open_v2(argv[1], &tDatabase, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(tDatabase, argv[2], -1, &tQuery, nullptr) != SQLITE_OK) {
        std::fprintf(stderr, "usage: bare_log_query DATABASE QUERY FROM [flush]\n");
        return 1;
    }
    sqlite3_bind_int64(tQuery, 1, std::atoll(argv[3]));
    while (sqlite3_step(tQuery) == SQLITE_ROW) {
        for (int i = 0; i < sqlite3_column_count(tQuery); ++i) {
            const unsigned char* tText = sqlite3_column_text(tQuery, i);
            std::printf("%s\n", tText == nullptr ? "" : reinterpret_cast<const char*>(tText));
            if (tFlush) {
                std::fflush(stdout);
            }
        }
    }
    sqlite3_finalize(tQuery);
    sqlite3_close(tDatabase);
    return 0;
}
