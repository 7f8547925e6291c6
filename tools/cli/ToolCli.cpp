#include "tools/cli/ToolCli.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace velto {
namespace tools {

const char* projectVersion() { return VELTO_PROJECT_VERSION; }

void addVersionFlag(CLI::App& app, const std::string& name) {
    app.set_version_flag("--version", name + " " + projectVersion(), "Print the version and exit");
}

int parseCommandLine(CLI::App& app, const std::string& name, int argc, char** argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        // A mistyped command word is left over as an extra argument, and
        // CLI11 only complains that no command was given.
        const std::vector<std::string> extra = app.remaining();
        if (!app.get_subcommands({}).empty() && app.get_subcommands().empty() && !extra.empty() &&
            extra.front().compare(0, 1, "-") != 0) {
            return usageError(name, "unknown command '" + extra.front() + "'");
        }
        // CLI11's own codes (100 and up) would tell a script nothing.
        return usageError(name, e.what());
    }
    return -1;
}

int usageError(const std::string& name, const std::string& reason) {
    fprintf(stderr, "%s: %s (see %s --help)\n", name.c_str(), reason.c_str(), name.c_str());
    return kExitUsage;
}

bool isFreshOutputDirectory(const std::string& dir, std::string* reason) {
    struct stat st;
    if (stat(dir.c_str(), &st) != 0) {
        if (errno == ENOENT) return true;
        *reason = dir + ": " + strerror(errno);
        return false;
    }
    if (!S_ISDIR(st.st_mode)) {
        *reason = dir + " exists and is not a directory";
        return false;
    }
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        *reason = dir + ": " + strerror(errno);
        return false;
    }
    bool empty = true;
    while (dirent* e = readdir(d)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) empty = false;
    }
    closedir(d);
    if (!empty) *reason = dir + " is not empty; give a new directory so that earlier results stay apart";
    return empty;
}

bool isWritableFilePath(const std::string& path, std::string* reason) {
    if (path.empty()) {
        *reason = "the output path is empty";
        return false;
    }
    struct stat st;
    if (stat(path.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) {
            *reason = path + " is a directory";
            return false;
        }
        if (access(path.c_str(), W_OK) != 0) {
            *reason = path + ": " + strerror(errno);
            return false;
        }
        return true;
    }
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *reason = "the directory " + dir + " of " + path + " does not exist";
        return false;
    }
    if (access(dir.c_str(), W_OK) != 0) {
        *reason = "cannot write into " + dir + ": " + strerror(errno);
        return false;
    }
    return true;
}

}  // namespace tools
}  // namespace velto
