// The program as the library calls it: its listeners and endpoints callbacks, one call at a time.
#pragma once

#include "records.h"

#include <mutex>
#include <vector>

namespace standins {

class Callbacks {
public:
    using Listener = kesta::brivon::api5::IBrivonMessageListener;
    using EndPointsCallback = kesta::brivon::api5::IBrivonMessageDispatcher::EndPointsCallback;

    enum Kind : unsigned { Messages = 1, Errors = 2, EndPoints = 4 };
    struct Registration {
        unsigned kinds;
        void* target; // the listener, or the context of the callback
        EndPointsCallback callback = nullptr;
    };

    // Any thread. Adding twice is adding once.
    void add(const Registration& registration);
    // Any thread. Waits for a call that is under way, unless it is made from within that call.
    void remove(const Registration& registration);
    void clear();

    // What follows calls the program, on the library's thread. A program that asks for a new endpoint list while it is
    // called may be called again.
    void endPointsChanged();
    // Errors are for error listeners, every other message is for message listeners.
    void received(const MessageFields& message);
    // A message was not taken.
    void failed(const std::string& error, const std::string& fault);
    // A message could not be delivered to this destination.
    void unreachable(const EndPointFields& destination);
    // For the listeners of these kinds. A listener of both hears it once.
    void deliver(const MessageFields& message, unsigned kinds);

private:
    // With the lock. The entry of that target; null where there is none.
    Registration* find(const Registration& wanted);
    bool isRegistered(const Registration& registration, unsigned kinds);
    // Calls what is registered for one of these kinds, unless it is removed meanwhile.
    template <typename Call>
    void callOut(unsigned kinds, Call call);

    std::recursive_mutex calling_; // held during a call; taken before the other one
    std::mutex mutex_;             // guards what follows
    std::vector<Registration> registrations_;
};

} // namespace standins
