// What the tests start. The first argument says what to do.
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

namespace
{

// Terminated by zeros, as they may hold anything else.
int Show(char** strings)
{
    for (; *strings != nullptr; ++strings) {
        std::fwrite(*strings, 1, std::strlen(*strings) + 1, stdout);
    }
    return 0;
}

// The masks of signals, and which descriptors are open.
int ShowInherited()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("SigBlk") || line.starts_with("SigIgn")) {
            std::cout << std::stoull(line.substr(7), nullptr, 16) << ' ';
        }
    }
    status.close();
    for (int file = 0; file < 1024; ++file) {
        if (std::filesystem::exists("/proc/self/fd/" + std::to_string(file))) {
            std::cout << file << ' ';
        }
    }
    return 0;
}

int Copy()
{
    char bytes[4096];
    for (ssize_t size; (size = read(STDIN_FILENO, bytes, sizeof bytes)) > 0;) {
        if (write(STDOUT_FILENO, bytes, static_cast<std::size_t>(size)) != size) {
            return 1;
        }
    }
    return 0;
}

} // namespace

int main(int count, char** arguments)
{
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0); // a test is its debugger
    const std::string_view what = count > 1 ? arguments[1] : "";
    if (what == "arguments") {
        return Show(arguments);
    }
    if (what == "environment") {
        return Show(environ);
    }
    if (what == "inherited") {
        return ShowInherited();
    }
    if (what == "folder") {
        std::cout << std::filesystem::current_path().native();
        return 0;
    }
    if (std::string_view(arguments[count - 1]) == "copy") { // also by a name with blanks
        return Copy();
    }
    if (what == "exit") {
        return std::atoi(arguments[2]);
    }
    if (what == "signal") {
        raise(std::atoi(arguments[2]));
    }
    return 99;
}
