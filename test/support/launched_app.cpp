// A program to be launched: launched_app REPORT ARGUMENT... writes its process id and its arguments, one a line, to the
// file REPORT, and runs until there is a file REPORT.stop.
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#if defined(_WIN32)
#include <process.h>
#define getpid _getpid
#else
#include <unistd.h>
#endif

int main(int count, char** arguments) {
    if (count < 2)
        return 2;
    const std::string report = arguments[1];
    {
        std::ofstream file(report + ".new");
        file << getpid() << '\n';
        for (int i = 2; i < count; ++i)
            file << arguments[i] << '\n';
    }
    // Whole from the moment that it can be seen.
    if (std::rename((report + ".new").c_str(), report.c_str()) != 0)
        return 1;
    while (!std::ifstream(report + ".stop"))
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return 0;
}
