// Runs commands in turn, round by round, and prints the median time, the ratio to the first one and the peak
// memory of each. Alternating spreads other load on the machine evenly.
//
//   turns ROUNDS [prepare SHELL-COMMAND] NAME COMMAND ... [--- NAME COMMAND ...]
//
// The preparation runs before every run and is not measured.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

struct Candidate
{
    std::string mName;
    std::vector<char*> mArguments;
    std::vector<double> mMilliseconds;
    long mPeakKib = 0;
};

double median(std::vector<double> pValues)
{
    std::sort(pValues.begin(), pValues.end());
    const size_t tMiddle = pValues.size() / 2;
    return pValues.size() % 2 == 1 ? pValues[tMiddle] : (pValues[tMiddle - 1] + pValues[tMiddle]) / 2;
}

bool runOnce(Candidate& pCandidate)
{
    posix_spawn_file_actions_t tActions;
    posix_spawn_file_actions_init(&tActions);
    posix_spawn_file_actions_addopen(&tActions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const auto tStart = std::chrono::steady_clock::now();
    pid_t tChild = 0;
    const int tFailed = posix_spawnp(&tChild, pCandidate.mArguments[0], &tActions, nullptr,
                                     pCandidate.mArguments.data(), environ);
    posix_spawn_file_actions_destroy(&tActions);
    if (tFailed != 0) {
        std::fprintf(stderr, "turns: %s: %s\n", pCandidate.mArguments[0], std::strerror(tFailed));
        return false;
    }
    int tStatus = 0;
    rusage tUsage{};
    wait4(tChild, &tStatus, 0, &tUsage);
    const std::chrono::duration<double, std::milli> tTime = std::chrono::steady_clock::now() - tStart;
    if (!WIFEXITED(tStatus) || WEXITSTATUS(tStatus) != 0) {
        std::fprintf(stderr, "turns: %s ended with status %d\n", pCandidate.mName.c_str(), tStatus);
        return false;
    }
    pCandidate.mMilliseconds.push_back(tTime.count());
    pCandidate.mPeakKib = std::max(pCandidate.mPeakKib, tUsage.ru_maxrss);
    return true;
}

std::vector<Candidate> parse(char** pArguments)
{
    std::vector<Candidate> tCandidates;
    bool tNameNext = true;
    for (; *pArguments != nullptr; ++pArguments) {
        if (tNameNext) {
            tCandidates.emplace_back().mName = *pArguments;
            tNameNext = false;
        } else if (std::strcmp(*pArguments, "---") == 0) {
            tNameNext = true;
        } else {
            tCandidates.back().mArguments.push_back(*pArguments);
        }
    }
    for (Candidate& tCandidate : tCandidates) {
        tCandidate.mArguments.push_back(nullptr);
    }
    return tCandidates;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fprintf(stderr,
                     "usage: turns ROUNDS [prepare SHELL-COMMAND] NAME COMMAND ... [--- NAME COMMAND ...]\n");
        return 2;
    }
    const int tRounds = std::atoi(argv[1]);
    char** tRest = argv + 2;
    const char* tPrepare = nullptr;
    if (std::strcmp(tRest[0], "prepare") == 0) {
        tPrepare = tRest[1];
        tRest += 2;
    }
    std::vector<Candidate> tCandidates = parse(tRest);
    for (int tRound = 0; tRound < tRounds; ++tRound) {
        for (Candidate& tCandidate : tCandidates) {
            if (tPrepare != nullptr && std::system(tPrepare) != 0) {
                std::fprintf(stderr, "turns: the preparation failed\n");
                return 1;
            }
            if (!runOnce(tCandidate)) {
                return 1;
            }
        }
    }
    const double tBase = median(tCandidates.front().mMilliseconds);
    for (const Candidate& tCandidate : tCandidates) {
        const double tMedian = median(tCandidate.mMilliseconds);
        std::printf("| %-44s | %10.2f ms | %5.2f | %6.1f MiB |\n", tCandidate.mName.c_str(), tMedian,
                    tMedian / tBase, static_cast<double>(tCandidate.mPeakKib) / 1024.0);
    }
    return 0;
}
