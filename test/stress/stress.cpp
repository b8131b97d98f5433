// Several processes with a dozen busy threads each on one bus, for the thread sanitizer: stress [SECONDS]. Every round,
// the threads of a process join, do everything that a dispatcher can do, and leave; the last one takes the process off
// the bus.
#include "BrivonMessage5.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace kesta::brivon::api5;

namespace {

constexpr unsigned processes = 4;
constexpr int threads = 12;
constexpr std::chrono::seconds roundTime(2);

void require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "stress: %s\n", what);
    std::_Exit(1);
}

// What one thread registers. The library calls it until it has been removed, and never after.
struct Registered final : IBrivonMessageListener {
    void Receive(const BrivonMessage& message) override {
        std::string type(message.GetTypeSize(), '\0');
        message.GetType(type.data());
        called();
    }
    static void endPointsChanged(void* context) { static_cast<Registered*>(context)->called(); }

    void called() {
        require(isExpected, "called after its removal");
        ++calls;
    }

    bool isExpected = false; // not atomic: removing waits for the library's thread
    int calls = 0;
};

void send(IBrivonMessageDispatcher& dispatcher, bool isAddressed) {
    SuiteMessage message("brivon.SuiteMessage.stress");
    message.SetSource(dispatcher.GetSelfEndPoint());
    message.SetPayload("a payload that is longer than a short string");
    EndPoint* endPoints = nullptr;
    std::size_t count = 0;
    dispatcher.GetEndPoints(&endPoints, &count);
    if (isAddressed && count != 0)
        message.SetDestinations(endPoints, count);
    if (count != 0)
        dispatcher.ReleaseEndPoints(endPoints);
    dispatcher.Send(message);
}

void useDispatcher(unsigned seed, std::chrono::steady_clock::time_point end) {
    std::minstd_rand random(seed);
    Registered registered;
    while (std::chrono::steady_clock::now() < end) {
        IBrivonMessageDispatcher* dispatcher = nullptr;
        require(IBrivonMessageDispatcher::GetInstance(&dispatcher) == BrivonMessageErrorCode_Success, "cannot join");
        registered.isExpected = true;
        dispatcher->AddMessageListener(&registered);
        dispatcher->AddErrorListener(&registered);
        dispatcher->RegisterEndPointsCallback(Registered::endPointsChanged, &registered);
        for (int i = 0; i < 50; ++i) {
            if (random() % 10 == 0 && !dispatcher->IsRefreshing())
                dispatcher->RefreshEndPoints();
            send(*dispatcher, random() % 2 == 0);
            std::this_thread::yield();
        }
        dispatcher->UnregisterEndPointsCallback(Registered::endPointsChanged, &registered);
        dispatcher->RemoveErrorListener(&registered);
        dispatcher->RemoveMessageListener(&registered);
        registered.isExpected = false;
        IBrivonMessageDispatcher::ReleaseInstance();
    }
    require(registered.calls != 0, "a thread has heard nothing");
}

void runProcess(unsigned number, long rounds) {
    for (long round = 0; round < rounds; ++round) {
        IBrivonMessageDispatcher::SetConfig("stress", std::to_string(number).c_str());
        const auto end = std::chrono::steady_clock::now() + roundTime;
        std::vector<std::thread> all;
        for (unsigned i = 0; i < threads; ++i)
            all.emplace_back(useDispatcher, 1 + number * threads + i, end);
        for (std::thread& thread : all)
            thread.join();
    }
    std::exit(0);
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // as the runtime does
    setenv("BRIVON_BUS", ("stress-" + std::to_string(getpid())).c_str(), 1);
    const long rounds = (argc > 1 ? std::atoi(argv[1]) : 16) / roundTime.count();
    for (unsigned number = 0; number < processes; ++number)
        if (fork() == 0)
            runProcess(number, rounds);
    int exitCode = 0;
    for (int status = 0; wait(&status) > 0;)
        exitCode = status == 0 ? exitCode : 1;
    return exitCode;
}
