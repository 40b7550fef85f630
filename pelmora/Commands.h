#pragma once

#include <cstdio>
#include <string_view>
#include <vector>

// The subcommands of `pelmora`, one file each. Every command gets the
// arguments after its own name and returns the process's exit status:
// 0 done, 1 could not do it, 2 the command line was wrong.
namespace pelmora::cli {

using Arguments = std::vector<std::string_view>;

int runSessions(const Arguments& arguments);
int runApprovals(const Arguments& arguments);
int runPaths(const Arguments& arguments);

void printUsage(std::FILE* stream);
// "pelmora: <message>" and a pointer to the usage on stderr; returns 2.
int usageError(std::string_view message);

} // namespace pelmora::cli
