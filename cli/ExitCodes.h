#pragma once

// The tool's exit codes; a command over several inputs exits with the worst one met.
constexpr int kExitOk = 0;
constexpr int kExitNoAssociation = 1;
constexpr int kExitExchangeFailed = 2;
constexpr int kExitLocalFailure = 3;
constexpr int kExitUsage = 64;

inline int WorstExit(int a, int b) { return a > b ? a : b; }
