#include "catalogue.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <spawn.h>
#include <sstream>
#include <strings.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace standins {

namespace {

// ---- Files

// A regular file that may be executed here, or that is a program for Windows.
bool isProgram(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           (strcasecmp(std::filesystem::path(path).extension().c_str(), ".exe") == 0 ||
            access(path.c_str(), X_OK) == 0);
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

struct Interpreter {
    std::string path;
    std::string argument; // empty for none
};

// What a script's first line says, as the system reads it. Nothing for another file.
std::optional<Interpreter> interpreterOf(const std::string& script) {
    struct stat status {};
    if (stat(script.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt; // opening a pipe would wait for its other end
    char start[256] = {};
    std::ifstream(script, std::ios::binary).read(start, sizeof start - 1);
    if (start[0] != '#' || start[1] != '!')
        return std::nullopt;
    std::istringstream line(std::string(start + 2, std::strcspn(start + 2, "\n")));
    Interpreter interpreter;
    line >> interpreter.path;
    std::getline(line >> std::ws, interpreter.argument);
    interpreter.argument.erase(interpreter.argument.find_last_not_of(" \t") + 1);
    return interpreter;
}

struct Process {
    std::string executable;
    std::vector<std::string> arguments; // the first three: its name, and what an interpreter is given up to the script
};

// Whether this argument of an interpreter's process is the script that it runs.
bool isScriptOf(const Process& process, std::size_t position) {
    const std::string& script = process.arguments[position];
    const std::optional<Interpreter> interpreter = interpreterOf(script);
    if (!interpreter)
        return false;
    if (realPath(interpreter->path) == process.executable)
        return position == 1 || process.arguments[1] == interpreter->argument;
    // env has become the interpreter that its argument names.
    const auto nameOf = [](const std::string& path) { return path.substr(path.rfind('/') + 1); };
    return position == 1 && nameOf(interpreter->path) == "env" &&
           nameOf(process.arguments[0]) == nameOf(interpreter->argument);
}

// Nothing for a process of another user's, and for one that has ended.
std::optional<Process> readProcess(const std::string& id) {
    const std::string folder = "/proc/" + id;
    char target[PATH_MAX];
    const ssize_t length = readlink((folder + "/exe").c_str(), target, sizeof target);
    if (length <= 0)
        return std::nullopt;
    Process process{std::string(target, static_cast<std::size_t>(length)), {}};
    std::ifstream commandLine(folder + "/cmdline", std::ios::binary);
    std::string argument;
    while (process.arguments.size() < 3 && std::getline(commandLine, argument, '\0'))
        process.arguments.push_back(argument);
    return process;
}

// Whether the condition holds for the program that a process runs: what the system says it is, and for a script, which
// an interpreter runs, its file.
template <typename Condition>
bool runs(const Process& process, Condition condition) {
    if (condition(process.executable))
        return true;
    for (std::size_t position = 1; position < process.arguments.size(); ++position) {
        const std::string& argument = process.arguments[position];
        if (!argument.empty() && argument[0] == '/' && condition(argument) && isScriptOf(process, position))
            return true;
    }
    return false;
}

// Ended children stay in the system's process table until their parent has asked for them.
void forgetEndedChildren(std::optional<pid_t> started = {}) {
    // Never destroyed: a launch may be under way while the process exits.
    static std::mutex& mutex = *new std::mutex;
    static std::vector<pid_t>& children = *new std::vector<pid_t>;
    const std::lock_guard lock(mutex);
    const auto hasEnded = [](pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; };
    children.erase(std::remove_if(children.begin(), children.end(), hasEnded), children.end());
    if (started)
        children.push_back(*started);
}

// The lowest id of the processes of which the condition holds for the program that they run; 0 for none.
template <typename Condition>
std::int32_t findProcess(Condition condition) {
    forgetEndedChildren();
    std::int32_t found = 0;
    visitFolder("/proc", [&](const std::string& name) {
        const auto id = static_cast<std::int32_t>(std::strtol(name.c_str(), nullptr, 10));
        const std::optional<Process> process = id == 0 ? std::nullopt : readProcess(name);
        if (process && (found == 0 || id < found) && runs(*process, condition))
            found = id;
    });
    return found;
}

// ---- Launching

constexpr char blanks[] = " \t\n";
constexpr char escapable[] = "\"\\$`\n"; // between double quotes

bool isOneOf(char c, const char* set) {
    return c != '\0' && std::strchr(set, c) != nullptr;
}

// Splits a command line as a shell does, expanding nothing. Blanks separate arguments; single quotes keep everything,
// double quotes all but \" \\ \$ \` and an escaped line end, a backslash elsewhere the next character. Nothing when a
// quotation or an escape is not finished.
std::optional<std::vector<std::string>> splitCommandLine(const std::string& line) {
    std::vector<std::string> arguments;
    std::optional<std::string> argument; // the one being read; "" is an argument too
    char quote = '\0';
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote == '\0' && isOneOf(c, blanks)) {
            if (argument)
                arguments.push_back(*std::exchange(argument, std::nullopt));
            continue;
        }
        if (!argument)
            argument.emplace();
        if (c == quote) {
            quote = '\0';
        } else if (quote == '\0' && (c == '\'' || c == '"')) {
            quote = c;
        } else if (c == '\\' && quote != '\'') {
            if (i + 1 == line.size())
                return std::nullopt;
            const char next = line[++i];
            if (quote == '"' && !isOneOf(next, escapable))
                *argument += c;
            if (next != '\n')
                *argument += next;
        } else {
            *argument += c;
        }
    }
    if (quote != '\0')
        return std::nullopt;
    if (argument)
        arguments.push_back(*argument);
    return arguments;
}

std::optional<pid_t> spawn(const std::vector<char*>& argv) {
    posix_spawn_file_actions_t streams;
    posix_spawnattr_t attributes;
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawn_file_actions_init(&streams);
    posix_spawnattr_init(&attributes);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&streams, stream, "/dev/null", O_RDWR, 0);
    // Threads of the runtime's pool block signals and the runtime ignores some, neither of which is the program's.
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t child = 0;
    const int status = posix_spawn(&child, argv[0], &streams, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&streams);
    return status == 0 ? std::optional<pid_t>(child) : std::nullopt;
}

} // namespace

std::vector<std::string> programsIn(const std::string& folder) {
    std::vector<std::string> names;
    visitFolder(folder, [&](const std::string& name) {
        if (isProgram(folder + "/" + name))
            names.push_back(name);
    });
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> pathOfProgram(const std::string& folder, const std::string& name) {
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos || folder.empty())
        return std::nullopt;
    const std::optional<std::string> real = realPath(folder);
    const std::string path = (real == "/" ? "" : real.value_or("")) + "/" + name;
    return real && isProgram(path) ? std::optional<std::string>(path) : std::nullopt;
}

std::int32_t processRunning(const std::string& path) {
    const std::string real = realPath(path).value_or(path);
    return findProcess([&](const std::string& program) { return program == path || program == real; });
}

bool isNameRunning(const std::string& name) {
    return findProcess([&name](const std::string& program) {
               return program.compare(program.rfind('/') + 1, std::string::npos, name) == 0;
           }) != 0;
}

bool launch(const std::string& path, const std::string& commandLine) {
    std::optional<std::vector<std::string>> arguments = splitCommandLine(commandLine);
    if (!arguments)
        return false;
    arguments->insert(arguments->begin(), path);
    std::vector<char*> argv;
    for (std::string& argument : *arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    const std::optional<pid_t> child = spawn(argv);
    forgetEndedChildren(child);
    return child.has_value();
}

} // namespace standins
