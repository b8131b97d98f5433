// The program as the library calls it: its listeners and its callbacks, one at a time.
#ifndef STANDINS_MESSAGE_PROGRAM_H
#define STANDINS_MESSAGE_PROGRAM_H

#include "records.h"

#include "BrivonMessage5.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace standins {

class Program {
public:
    using Listener = kesta::brivon::api5::IBrivonMessageListener;
    using Callback = kesta::brivon::api5::IBrivonMessageDispatcher::EndPointsCallback;

    // Any thread. Adding twice is adding once. Whoever removes something waits until a call of it that is under way has
    // ended, unless it is that call which removes it.
    void addMessageListener(Listener* listener);
    void removeMessageListener(Listener* listener);
    void addErrorListener(Listener* listener);
    void removeErrorListener(Listener* listener);
    void addCallback(Callback callback, void* context);
    void removeCallback(Callback callback, void* context);
    void clear();

    // What follows calls the program, on the library's thread. A program that asks for a new endpoint list while it is
    // called may be called again.
    void endPointsChanged();
    void tellMessage(const MessageFields& message);
    void tellError(const MessageFields& message);
    // A listener of both kinds hears it once.
    void tellEveryone(const MessageFields& message);

private:
    struct Registration {
        Callback callback;
        void* context;
        bool operator==(const Registration& other) const {
            return callback == other.callback && context == other.context;
        }
    };

    template <typename Element>
    void add(std::vector<Element>& list, Element element);
    template <typename Element>
    void remove(std::vector<Element>& list, Element element, const void* target);
    template <typename Element>
    std::vector<Element> copyOf(const std::vector<Element>& list);

    void tell(const MessageFields& message, const std::vector<Listener*>& listeners);
    // Calls the target unless it has been removed.
    template <typename IsRegistered, typename Call>
    void callOut(const void* target, IsRegistered isRegistered, Call call);

    std::mutex mutex_; // guards what follows; never held while the program is called
    std::vector<Listener*> messageListeners_;
    std::vector<Listener*> errorListeners_;
    std::vector<Registration> callbacks_;
    std::vector<const void*> running_; // the listeners and contexts that are being called, innermost last
    std::thread::id caller_;           // the thread that calls them
    std::condition_variable idle_;
};

} // namespace standins

#endif
