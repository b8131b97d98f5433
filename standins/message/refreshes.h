// The refreshes of the endpoint list that were asked for, and those that are over.
#ifndef STANDINS_MESSAGE_REFRESHES_H
#define STANDINS_MESSAGE_REFRESHES_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace standins {

class Refreshes {
public:
    // Any thread. True: a scan has to be made for it; false: one that is yet to begin serves it too.
    bool ask();
    // Any thread but the library's. Waits a moment for the last refresh to be over, which saves callers that poll a
    // much longer sleep. Answers whether one is pending.
    bool arePendingFor(std::chrono::milliseconds patience) const;
    bool arePending() const { return arePendingFor(std::chrono::milliseconds(0)); }

    // Library thread.
    void beginScan();
    // Those that were asked for by now.
    std::size_t asked() const;
    void end(std::size_t asked);

private:
    mutable std::mutex mutex_; // guards what follows
    bool isScanDue_ = false;
    std::size_t asked_ = 0;
    std::size_t ended_ = 0;
    mutable std::condition_variable allEnded_;
};

} // namespace standins

#endif
