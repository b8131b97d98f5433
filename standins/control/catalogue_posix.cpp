#include "catalogue.h"
#include "command_line.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <spawn.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace standins {

namespace {

bool endsWithExe(const std::string& name) {
    return name.size() > 4 && strcasecmp(name.c_str() + name.size() - 4, ".exe") == 0;
}

// A regular file that may be executed here, or that is a program for Windows.
bool isProgram(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           (endsWithExe(path) || access(path.c_str(), X_OK) == 0);
}

std::optional<std::string> realPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
    return resolved == nullptr ? std::nullopt : std::optional<std::string>(resolved.get());
}

template <typename Visit>
void visitFolder(const std::string& folder, Visit visit) {
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure))
        visit(entry->path().filename().string());
}

// The program that a process runs: what the system says it is, and for a script, which an interpreter runs, its file.
std::vector<std::string> programsOf(const std::string& process) {
    const std::string folder = "/proc/" + process;
    char target[PATH_MAX];
    const ssize_t length = readlink((folder + "/exe").c_str(), target, sizeof target);
    if (length <= 0)
        return {}; // it is another user's, or has ended
    std::vector<std::string> programs{std::string(target, static_cast<std::size_t>(length))};
    std::ifstream commandLine(folder + "/cmdline", std::ios::binary);
    std::string argument;
    // An interpreter is given at most one argument before the script.
    for (int position = 0; position < 3 && std::getline(commandLine, argument, '\0'); ++position) {
        if (position > 0 && !argument.empty() && argument[0] == '/')
            programs.push_back(argument);
    }
    return programs;
}

// The ids of the processes of which the condition holds for a program that they run, ascending.
template <typename Condition>
std::vector<std::int32_t> processesWhere(Condition condition) {
    std::vector<std::int32_t> processes;
    visitFolder("/proc", [&](const std::string& name) {
        if (name.find_first_not_of("0123456789") != std::string::npos)
            return;
        const std::vector<std::string> programs = programsOf(name);
        if (std::any_of(programs.begin(), programs.end(), condition))
            processes.push_back(static_cast<std::int32_t>(std::strtol(name.c_str(), nullptr, 10)));
    });
    std::sort(processes.begin(), processes.end());
    return processes;
}

// Processes that we started stay in the system's table, as ended, until we have asked for them.
class Children {
public:
    void add(pid_t child) {
        const std::lock_guard lock(mutex_);
        children_.push_back(child);
    }
    void forgetEnded() {
        const std::lock_guard lock(mutex_);
        const auto hasEnded = [](pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; };
        children_.erase(std::remove_if(children_.begin(), children_.end(), hasEnded), children_.end());
    }

private:
    std::mutex mutex_;
    std::vector<pid_t> children_;
};

Children& children() {
    static Children& all = *new Children; // never destroyed: a launch may be under way while the process exits
    return all;
}

} // namespace

std::vector<std::string> Catalogue::names() const {
    std::vector<std::string> names;
    visitFolder(folder_, [&](const std::string& name) {
        if (isProgram(folder_ + "/" + name))
            names.push_back(name);
    });
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> Catalogue::pathOf(const std::string& name) const {
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos || folder_.empty())
        return std::nullopt;
    const std::optional<std::string> folder = realPath(folder_);
    if (!folder)
        return std::nullopt;
    std::string path = (*folder == "/" ? "" : *folder) + "/" + name;
    return isProgram(path) ? std::optional<std::string>(std::move(path)) : std::nullopt;
}

std::int32_t processRunning(const std::string& path) {
    children().forgetEnded();
    const std::string real = realPath(path).value_or(path);
    const std::vector<std::int32_t> processes =
        processesWhere([&](const std::string& program) { return program == path || program == real; });
    return processes.empty() ? 0 : processes.front();
}

bool isNameRunning(const std::string& name) {
    children().forgetEnded();
    return !processesWhere([&name](const std::string& program) {
                return program.compare(program.rfind('/') + 1, std::string::npos, name) == 0;
            }).empty();
}

bool launch(const std::string& path, const std::string& commandLine) {
    children().forgetEnded();
    std::optional<std::vector<std::string>> arguments = splitCommandLine(commandLine);
    if (!arguments)
        return false;
    arguments->insert(arguments->begin(), path);
    std::vector<char*> argv;
    for (std::string& argument : *arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t streams;
    posix_spawnattr_t attributes;
    sigset_t none;
    sigemptyset(&none);
    posix_spawn_file_actions_init(&streams);
    posix_spawnattr_init(&attributes);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&streams, stream, "/dev/null", O_RDWR, 0);
    // Threads of the runtime's pool block signals, which the program must not inherit.
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
    pid_t child = 0;
    const int status = posix_spawn(&child, path.c_str(), &streams, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&streams);
    if (status != 0)
        return false;
    children().add(child);
    return true;
}

} // namespace standins
