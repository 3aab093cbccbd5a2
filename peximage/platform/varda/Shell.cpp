#include "peximage/platform/varda/Shell.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace pex {
namespace {

constexpr std::size_t mostOutput = std::size_t{16} << 20;

/// Starts the program with its output going to a descriptor; -1 when that fails.
pid_t start(const ShellCommand& command, int output) {
    std::vector<char*> arguments{const_cast<char*>(command.launchPath.c_str())}; // posix_spawn changes none
    for (const std::string& argument : command.arguments)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    if (::posix_spawn_file_actions_init(&actions) != 0) return -1;
    pid_t child = -1;
    const bool started =
        ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0) == 0 &&
        ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO) == 0 &&
        ::posix_spawn(&child, command.launchPath.c_str(), &actions, nullptr, arguments.data(), environ) == 0;
    ::posix_spawn_file_actions_destroy(&actions);
    return started ? child : -1;
}

/// Reads everything, so that the writer is never blocked, but keeps only the beginning.
std::string readAll(int input) {
    std::string text;
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t got = ::read(input, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return text;
        text.append(buffer.data(), std::min(static_cast<std::size_t>(got), mostOutput - text.size()));
    }
}

} // namespace

std::optional<std::string> shell2(const ShellCommand& command) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
    const pid_t child = start(command, ends[1]);
    ::close(ends[1]);
    std::optional<std::string> output;
    if (child > 0) output = readAll(ends[0]);
    ::close(ends[0]);
    while (child > 0 && ::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return output;
}

} // namespace pex
