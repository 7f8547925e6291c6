#ifndef VELTO_TOOLS_TOOLCLI_H
#define VELTO_TOOLS_TOOLCLI_H

#include <CLI/CLI.hpp>
#include <string>

namespace velto {
namespace tools {

// Exit status of every program of the project.
enum ExitStatus {
    kExitOk = 0,
    kExitFailed = 1,       // the operation failed; one line on stderr says why
    kExitUsage = 2,        // bad command line
    kExitInterrupted = 130  // SIGINT/SIGTERM, after cleaning up
};

// The version every program prints for --version.
const char* projectVersion();

// Adds --version to `app` ("NAME VERSION").
void addVersionFlag(CLI::App& app, const std::string& name);

// Parses the command line. Returns -1 when the program is to go on, else the
// status to exit with: 0 after --help or --version (printed on stdout), 2 for
// bad usage, reported as one line "NAME: reason (see NAME --help)".
int parseCommandLine(CLI::App& app, const std::string& name, int argc, char** argv);

// Reports bad usage found after parsing, in the same one-line form; returns 2.
int usageError(const std::string& name, const std::string& reason);

// Whether `dir` names a directory that does not exist or is empty, so that a
// program writing its output there mixes nothing into earlier results. Sets
// `reason` when not.
bool isFreshOutputDirectory(const std::string& dir, std::string* reason);

// Whether a file can be created at `path` (its directory exists and is
// writable, and the path is not a directory). Sets `reason` when not.
bool isWritableFilePath(const std::string& path, std::string* reason);

}  // namespace tools
}  // namespace velto

#endif  // VELTO_TOOLS_TOOLCLI_H
