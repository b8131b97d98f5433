#include "program.h"

#include <algorithm>
#include <exception>

namespace standins {

namespace {

template <typename Element>
bool contains(const std::vector<Element>& list, const Element& element) {
    return std::find(list.begin(), list.end(), element) != list.end();
}

} // namespace

template <typename Element>
void Program::add(std::vector<Element>& list, Element element) {
    const std::lock_guard lock(mutex_);
    if (!contains(list, element))
        list.push_back(element);
}

template <typename Element>
void Program::remove(std::vector<Element>& list, Element element, const void* target) {
    std::unique_lock lock(mutex_);
    list.erase(std::remove(list.begin(), list.end(), element), list.end());
    idle_.wait(lock, [this, target] { return !contains(running_, target) || caller_ == std::this_thread::get_id(); });
}

template <typename Element>
std::vector<Element> Program::copyOf(const std::vector<Element>& list) {
    const std::lock_guard lock(mutex_);
    return list;
}

void Program::addMessageListener(Listener* listener) {
    add(messageListeners_, listener);
}
void Program::removeMessageListener(Listener* listener) {
    remove(messageListeners_, listener, listener);
}
void Program::addErrorListener(Listener* listener) {
    add(errorListeners_, listener);
}
void Program::removeErrorListener(Listener* listener) {
    remove(errorListeners_, listener, listener);
}
void Program::addCallback(Callback callback, void* context) {
    add(callbacks_, Registration{callback, context});
}
void Program::removeCallback(Callback callback, void* context) {
    remove(callbacks_, Registration{callback, context}, context);
}

void Program::clear() {
    const std::lock_guard lock(mutex_);
    messageListeners_.clear();
    errorListeners_.clear();
    callbacks_.clear();
}

void Program::endPointsChanged() {
    for (const Registration& registration : copyOf(callbacks_))
        callOut(
            registration.context, [&] { return contains(callbacks_, registration); },
            [&] { registration.callback(registration.context); });
}

void Program::tellMessage(const MessageFields& message) {
    tell(message, copyOf(messageListeners_));
}

void Program::tellError(const MessageFields& message) {
    tell(message, copyOf(errorListeners_));
}

void Program::tellEveryone(const MessageFields& message) {
    std::vector<Listener*> everyone = copyOf(messageListeners_);
    for (Listener* listener : copyOf(errorListeners_)) {
        if (!contains(everyone, listener))
            everyone.push_back(listener);
    }
    tell(message, everyone);
}

void Program::tell(const MessageFields& message, const std::vector<Listener*>& listeners) {
    withMessage(message, [&](const BrivonMessage& made) {
        for (Listener* listener : listeners)
            callOut(
                listener, [&] { return contains(messageListeners_, listener) || contains(errorListeners_, listener); },
                [&] { listener->Receive(made); });
    });
}

template <typename IsRegistered, typename Call>
void Program::callOut(const void* target, IsRegistered isRegistered, Call call) {
    {
        const std::lock_guard lock(mutex_);
        if (!isRegistered())
            return;
        running_.push_back(target);
        caller_ = std::this_thread::get_id();
    }
    try {
        call();
    } catch (const std::exception&) {
        // Programs throw nothing into the library: this is what a script has thrown into the program, come back.
    }
    const std::lock_guard lock(mutex_);
    running_.pop_back();
    idle_.notify_all();
}

} // namespace standins
